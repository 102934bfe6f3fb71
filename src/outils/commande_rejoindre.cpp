#include "app/agent_linux.h"
#include "app/fin_processus.h"
#include "app/json_sortie.h"
#include "generique/arguments.h"
#include "generique/utf8.h"
#include "outils/commandes.h"
#include "platform/qt/boucle_qt.h"

#include <QCoreApplication>
#include <chrono>
#include <filesystem>
#include <iostream>

namespace tavi::outils {

namespace {

// The codes the family server hands out are 8 characters; anything this long was not typed
// from one.
constexpr std::size_t longueurMaxCode = 64;

// A keyring that hangs gets the time of its own D-Bus bound, and a little more.
constexpr std::chrono::seconds attenteRetraits{30};

// What the login agent is to start: tavi-home installed beside this program, else the one built
// with it. Named as the agent names itself, so that it recognises its own entry.
std::filesystem::path executableAgent() {
    std::error_code erreur;
    const auto ici = std::filesystem::read_symlink("/proc/self/exe", erreur);
    const auto voisin = ici.parent_path() / "tavi-home";
    for (const std::filesystem::path& candidat :
         {voisin, std::filesystem::path(TAVI_HOME_CONSTRUIT)})
        if (auto chemin = std::filesystem::canonical(candidat, erreur); !erreur) return chemin;
    return voisin;
}

} // namespace

int commandeRejoindre(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    const std::string code = args.suivant("le code d'appairage");
    args.fin();
    if (code.empty() || code.size() > longueurMaxCode)
        throw ErreurUsage("le code d'appairage a de 1 à 64 caractères");

    int argc = 1;
    char nom[] = "tavi";
    char* argv[] = {nom, nullptr};
    QCoreApplication application(argc, argv);
    BoucleQt boucle;
    AgentDeSession agent(boucle, executableAgent());
    // From here on background work holds the agent's parts: the process ends by
    // `finirProcessus`, never by unwinding.
    if (!agent.persistant()) {
        std::cerr << "tavi: réglages inaccessibles : l'ordinateur ne resterait pas relié\n";
        finirProcessus(2);
    }
    Moteur& moteur = agent.moteur();
    moteur.rejoindre(code, [&](ResultatApi<Rejoindre> r) {
        if (!r) {
            std::cerr << "tavi: " << pourTerminal(decrire(r.error())) << '\n';
            return boucle.quitter(1);
        }
        if (moteur.jetonEnAttente()) {
            // The token would live only as long as this process: better no pairing than one
            // that vanishes unnoticed.
            std::cerr << "tavi: le trousseau refuse le jeton ; l'appairage est annulé "
                         "(déverrouillez le trousseau et demandez un nouveau code)\n";
            agent.oublier([&boucle] { boucle.quitter(1); });
            boucle.plusTard(attenteRetraits, [&boucle] { boucle.quitter(1); });
            return;
        }
        std::cout << ligneJson(
                         {{"prenom", r->enfant.prenom},
                          {"ordinateur", {{"id", r->ordinateur.id}, {"nom", r->ordinateur.nom}}}})
                  << '\n';
        boucle.quitter(0);
    });
    finirProcessus(boucle.executer());
}

} // namespace tavi::outils
