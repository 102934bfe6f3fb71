#include "generique/arguments.h"
#include "observation/compteur.h"
#include "outils/commandes.h"
#include "platform/linux/observation_linux.h"
#include "platform/qt/boucle_qt.h"

#include <QCoreApplication>
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tavi::outils {

namespace {

// The services answer in milliseconds; a bus or a desktop that does not answer in this time
// is reported as unobservable rather than waited for.
constexpr std::chrono::seconds attenteMax{2};

template <class T>
nlohmann::json ouNull(const std::optional<T>& valeur) {
    return valeur ? nlohmann::json(*valeur) : nlohmann::json(nullptr);
}

nlohmann::ordered_json etat(ObservationLinux& observation) {
    Session& session = observation.session();
    Bureau& bureau = observation.bureau();
    // What the counter would decide if it had followed the session since it started.
    const auto decision = Compteur::decider(session.ecransEnVeille().value_or(false),
                                            session.sessionActive().value_or(true), session);
    nlohmann::json appli = nullptr;
    if (auto face = bureau.applicationAuPremierPlan())
        appli = {{"id", ouNull(face->identifiant)}, {"nom", face->nom}, {"pid", face->pid}};
    return {{"utilise", decision.utilise},
            {"raison", decision.raison},
            {"inactivite_s", ouNull(session.secondesInactivite())},
            {"ecran_verrouille", ouNull(session.ecranVerrouille())},
            {"sur_console", ouNull(session.surConsole())},
            {"session_active", ouNull(session.sessionActive())},
            {"ecrans_en_veille", ouNull(session.ecransEnVeille())},
            {"affichage_retenu", ouNull(session.veilleEcranRetenue())},
            {"appli", appli},
            {"type_session", session.typeSession()},
            {"inobservable", observation.inobservable()}};
}

} // namespace

int commandeActivite(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    args.fin();
    int argc = 1;
    char nom[] = "tavi";
    char* argv[] = {nom, nullptr};
    QCoreApplication application(argc, argv);
    BoucleQt boucle;
    ObservationLinux observation(boucle, EnvironnementXdg::duProcessus());
    observation.quandPret([&boucle] { boucle.quitter(0); });
    boucle.plusTard(attenteMax, [&boucle] { boucle.quitter(0); });
    boucle.executer();
    std::cout << etat(observation).dump() << '\n';
    return 0;
}

} // namespace tavi::outils
