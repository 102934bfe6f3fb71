#include "commun/fuseau_systeme.h"
#include "gardien/commandes_gardien.h"
#include "gardien/service.h"
#include "gardien/surveillance.h"
#include "generique/arguments.h"
#include "server/transport_curl.h"

#include <iostream>
#include <unistd.h>

namespace {

constexpr const char* texteAide = R"(Utilisation : tavi-gardien [OPTIONS] [COMMANDE]
Le gardien de Tavi Home : le service système qui garde le lien avec la famille, relaie les
requêtes de l'agent et lance l'agent dans chaque session d'un compte relié.

Sans commande : lance le service (root seulement).

Commandes :
  etat                 les comptes reliés, les sessions, l'agent et son dernier battement
                       (une ligne JSON chacun, sans secret) (root seulement)
  serveur ADRESSE      le serveur de la famille (https://, ou http:// vers cet ordinateur)
                       (root seulement)
  oublier COMPTE       délie un compte (nom de connexion ou uid) (root seulement)

Options (avant la commande) :
  --conf FICHIER       la configuration (/etc/tavi-home/tavi-home.conf)
  --etat DOSSIER       les comptes reliés (/var/lib/tavi-home)
  --relais CHEMIN      la socket du relais (/run/tavi-home/relais)
  --agent PROGRAMME    l'agent lancé dans les sessions (/usr/bin/tavi-home)
  -h, --aide, --help   affiche cette aide
      --version        affiche la version

Statut : 0 réussi, 1 échec (dont : pas root), 2 ligne de commande invalide.
Voir aussi : tavi-home(1), tavi(1).
)";

int usage(const std::string& message) {
    std::cerr << "tavi-gardien: " << message << "\n\n" << texteAide;
    return 2;
}

bool root(const char* quoi) {
    if (geteuid() == 0) return true;
    std::cerr << "tavi-gardien: " << quoi << " : réservé à root (sudo tavi-gardien ...)\n";
    return false;
}

// An option's path: absolute, so that the service does not depend on where it was started.
std::string chemin(tavi::Arguments& arguments, const std::string& nom, std::string parDefaut) {
    auto valeur = arguments.option(nom);
    if (!valeur) return parDefaut;
    if (valeur->empty() || valeur->front() != '/')
        throw tavi::ErreurUsage(nom + " attend un chemin absolu");
    return *valeur;
}

} // namespace

int main(int argc, char** argv) {
    // The guardian's day is the computer's, whatever its environment says.
    tavi::suivreFuseauSysteme();
    tavi::OptionsGardien options;
    std::string commande;
    std::vector<std::string> mots;
    try {
        tavi::Arguments arguments({argv + 1, argv + argc});
        if (arguments.drapeau("--aide") || arguments.drapeau("--help") || arguments.drapeau("-h")) {
            std::cout << texteAide;
            return 0;
        }
        if (arguments.drapeau("--version")) {
            std::cout << "tavi-gardien " << TAVI_VERSION << '\n';
            return 0;
        }
        options.conf = chemin(arguments, "--conf", options.conf);
        options.etat = chemin(arguments, "--etat", options.etat);
        options.relais = chemin(arguments, "--relais", options.relais);
        options.agent = chemin(arguments, "--agent", options.agent);
        commande = arguments.suivantOptionnel().value_or("");
        if (commande == "serveur" || commande == "oublier")
            mots.push_back(arguments.suivant(commande == "serveur" ? "l'ADRESSE" : "le COMPTE"));
        else if (!commande.empty() && commande != "etat")
            throw tavi::ErreurUsage("commande inconnue : " + commande);
        arguments.fin();
    } catch (const tavi::ErreurUsage& e) {
        return usage(e.what());
    }

    // The guardian tells its state to root alone, and the registry is root's.
    if (commande == "etat") return root("etat") ? tavi::commandeEtat(options) : 1;
    if (commande == "serveur") return root("serveur") ? tavi::commandeServeur(options, mots[0]) : 1;
    if (commande == "oublier") return root("oublier") ? tavi::commandeOublier(options, mots[0]) : 1;
    if (!root("le service")) return 1;

    auto supervision = tavi::creerSupervision({options.agent, options.relais, options.etat});
    tavi::TransportCurl transport;
    const int statut =
        tavi::servir({options.relais, options.etat, options.conf}, *supervision, transport);
    // The guardian's count is written before it goes.
    supervision.reset();
    // Exchanges still under way end with the process: nothing is left half-written (every
    // file is replaced in one step), and waiting for them would hold up the stop.
    std::cerr.flush();
    _exit(statut);
}
