#include "commandes.h"

#include "serveur.h"
#include "temps.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <pthread.h>
#include <sys/resource.h>

namespace tavi::famille {

using nlohmann::json;

namespace {

constexpr const char* aide = R"(tavi-famille — le serveur de la famille et les commandes des parents

Usage : tavi-famille --base FICHIER COMMANDE [ARGUMENTS...]
Chaque commande écrit des lignes JSON ; une erreur écrit une ligne sur la sortie d'erreur et
rend le statut 2. Les enfants sont désignés par leur prénom, unique dans la famille.

Serveur
  servir [--adresse HOTE:PORT] [--certificat FICHIER --cle FICHIER]
         [--renouveler-apres SECONDES] [--connexions-par-adresse N]
      Sert l'API des ordinateurs (127.0.0.1:8080 par défaut ; port 0 : un port libre).
      Écrit {"adresse","port","tls"} une fois à l'écoute, s'arrête sur SIGTERM ou SIGINT.
      Sans certificat, mettez-le derrière un mandataire HTTPS pour l'ouvrir au réseau.
      --renouveler-apres : un jeton plus vieux reçoit un successeur (en-tête X-Tavi-Jeton).
      --connexions-par-adresse : 32 par défaut (un réseau IPv6 compte par son /56) ;
      à relever derrière un mandataire, par lequel tous les clients ont la même adresse.

Famille et ordinateurs
  enfant ajouter PRENOM [--langue fr] [--fuseau Europe/Paris]
  enfant retirer PRENOM               efface l'enfant, ses ordinateurs et tout leur suivi
  enfants                             liste les enfants
  fuseau PRENOM ZONE                  fuseau IANA des journées et des plages de l'enfant
  code PRENOM                         code d'appairage à usage unique, valable 15 minutes
  ordinateur retirer ID               l'ordinateur perd son accès (son jeton est refusé)

Règles
  pause PRENOM MINUTES [--titre T]    pause famille immédiate (tient même pendant « ouvrir »)
  fin-pause PRENOM
  ouvrir PRENOM MINUTES               exempte des plages, de la pause et de la limite du jour
  fin-ouverture PRENOM
  limite PRENOM MINUTES|aucune        limite du jour, partagée par les ordinateurs de l'enfant
  plage PRENOM JOURS HH:MM HH:MM [--familles f1,f2] [--cause C] [--titre T]
      JOURS : lu,ma,me,je,ve,sa,di, des intervalles (lu-ve) ou tous ; une fin avant le début
      finit le lendemain ; 24:00 pour minuit. Sans --familles, tout l'ordinateur se repose ;
      familles : jeux, reseaux, videos, musique, ecole, messages. La cause pause_famille
      fait tenir la plage pendant « ouvrir ».
  plages PRENOM                       liste les plages avec leur numéro
  plage-supprimer PRENOM NUMERO
  limite-appli PRENOM ID NOM MINUTES APPLI...   limite partagée par un groupe d'applis
      (ID : lettres, chiffres, « - » et « . » ; le même ID remplace la limite)
  limite-appli-supprimer PRENOM ID
  couper PRENOM APPLI                 l'appli est toujours en sieste
  retablir PRENOM APPLI
  filtre PRENOM actif|inactif [--bloquer D]... [--autoriser D]... [--retirer D]...
      actif : la liste intégrée des sites pour adultes s'applique aussi ; les domaines
      bloqués et autorisés par la famille s'appliquent toujours.
  rapports PRENOM applis|sites on|off temps par appli, noms des sites visités
  reaction-voile PRENOM signaler|verrouiller|fermer_session
      ce que fait tavi-gardien quand le voile manque pendant le repos : le noter, verrouiller
      la session (par défaut), ou la verrouiller puis la fermer au troisième verrou de l'heure
  tirelire PRENOM +N|-N               ajoute ou retire des minutes de la tirelire
  reglages PRENOM                     les réglages enregistrés

Suivi
  demandes PRENOM [--toutes]          demandes de temps (en attente, ou toutes)
  accorder ID [MINUTES]               ajoute les minutes à la journée de l'enfant
  refuser ID
  rapport PRENOM                      ordinateurs (protection active ou coupée : arrêt
                                      signalé ou plus de 90 s sans nouvelles), temps du jour,
                                      applis, sites, applis installées, signalements du jour,
                                      interruptions du jour : arrêts, silences, battements
                                      espacés, redémarrages, baisses du temps compté, voile
                                      réparé, clavier refusé, agent suspendu ; avec
                                      tavi-gardien : son compte du jour à côté de celui de
                                      l'agent, désaccords, verrous, sessions fermées, voile
                                      absent pendant le repos
  consigne PRENOM [--ordinateur ID]   la consigne qu'un battement recevrait maintenant
)";

struct Commande {
    bool creeLaBase;
    void (*faire)(Contexte&);
};

const std::map<std::string, Commande>& commandes() {
    static const std::map<std::string, Commande> table = {
        {"enfant ajouter", {true, Commandes::ajouterEnfant}},
        {"enfant retirer", {false, Commandes::retirerEnfant}},
        {"enfants", {false, Commandes::enfants}},
        {"fuseau", {false, Commandes::fuseau}},
        {"code", {false, Commandes::code}},
        {"ordinateur retirer", {false, Commandes::retirerOrdinateur}},
        {"pause", {false, Commandes::pause}},
        {"fin-pause", {false, Commandes::finPause}},
        {"ouvrir", {false, Commandes::ouvrir}},
        {"fin-ouverture", {false, Commandes::finOuverture}},
        {"limite", {false, Commandes::limite}},
        {"plage", {false, Commandes::plage}},
        {"plages", {false, Commandes::plages}},
        {"plage-supprimer", {false, Commandes::supprimerPlage}},
        {"limite-appli", {false, Commandes::limiteAppli}},
        {"limite-appli-supprimer", {false, Commandes::supprimerLimiteAppli}},
        {"couper", {false, Commandes::couper}},
        {"retablir", {false, Commandes::retablir}},
        {"filtre", {false, Commandes::filtre}},
        {"rapports", {false, Commandes::rapports}},
        {"reaction-voile", {false, Commandes::reactionVoile}},
        {"tirelire", {false, Commandes::tirelire}},
        {"reglages", {false, Commandes::reglages}},
        {"demandes", {false, Commandes::demandes}},
        {"accorder", {false, Commandes::accorder}},
        {"refuser", {false, Commandes::refuser}},
        {"rapport", {false, Commandes::rapport}},
        {"consigne", {false, Commandes::consigne}},
    };
    return table;
}

OptionsServeur optionsServeur(Arguments& args) {
    OptionsServeur options;
    if (auto adresse = args.option("--adresse")) {
        auto deuxPoints = adresse->rfind(':');
        if (deuxPoints == std::string::npos || deuxPoints == 0)
            throw ErreurUsage("--adresse attend HOTE:PORT : " + *adresse);
        options.hote = adresse->substr(0, deuxPoints);
        if (options.hote.size() > 2 && options.hote.front() == '[' && options.hote.back() == ']')
            options.hote = options.hote.substr(1, options.hote.size() - 2);
        options.port = static_cast<int>(
            entierEntre(adresse->substr(deuxPoints + 1), "le port de --adresse", 0, 65535));
    }
    options.certificat = args.option("--certificat");
    options.cle = args.option("--cle");
    if (auto age = args.option("--renouveler-apres"))
        options.renouvelerApresMs =
            entierEntre(*age, "--renouveler-apres", 0, 10LL * 365 * 24 * 3600) * 1000;
    if (auto n = args.option("--connexions-par-adresse"))
        options.connexionsParAdresse =
            static_cast<std::size_t>(entierEntre(*n, "--connexions-par-adresse", 1, 100000));
    args.fin();
    return options;
}

int servir(const std::string& base, Arguments& args, std::ostream& sortie) {
    OptionsServeur options = optionsServeur(args);
    // Blocked before any thread starts, so that every thread inherits the mask and only the
    // sigwait below receives the stop signals.
    sigset_t arret;
    sigemptyset(&arret);
    sigaddset(&arret, SIGINT);
    sigaddset(&arret, SIGTERM);
    sigset_t avant;
    pthread_sigmask(SIG_BLOCK, &arret, &avant);
    std::signal(SIGPIPE, SIG_IGN); // a client gone mid-answer must not end the server
    // Each connection is a descriptor, and the usual soft limit of 1024 would bound the
    // server far below the connections it is meant to hold.
    rlimit descripteurs{};
    if (getrlimit(RLIMIT_NOFILE, &descripteurs) == 0 &&
        descripteurs.rlim_cur < descripteurs.rlim_max) {
        descripteurs.rlim_cur =
            std::max<rlim_t>(descripteurs.rlim_cur, std::min<rlim_t>(descripteurs.rlim_max, 65536));
        setrlimit(RLIMIT_NOFILE, &descripteurs);
    }
    Serveur serveur(base, options);
    serveur.demarrer();
    sortie
        << json{{"adresse", options.hote}, {"port", serveur.port()}, {"tls", serveur.tls()}}.dump()
        << std::endl;
    int recu = 0;
    sigwait(&arret, &recu);
    serveur.arreter();
    pthread_sigmask(SIG_SETMASK, &avant, nullptr);
    sortie << json{{"arret", recu == SIGTERM ? "SIGTERM" : "SIGINT"}}.dump() << std::endl;
    return 0;
}

} // namespace

int executer(const std::vector<std::string>& arguments, std::ostream& sortie,
             std::ostream& erreurs) {
    try {
        for (const auto& mot : arguments)
            if (mot == "--aide" || mot == "-h" || mot == "--help") {
                sortie << aide;
                return 0;
            }
        Arguments args(arguments);
        auto base = args.option("--base");
        if (!base) throw ErreurUsage("il manque --base FICHIER");
        std::string nom = args.suivant("la commande");
        if (nom == "enfant" || nom == "ordinateur") {
            // Appended piece by piece: GCC 12 at -O3 reports a false -Wrestrict on
            // `"texte" + chaine`.
            std::string quoi = "l'action après « ";
            quoi.append(nom).append(" »");
            nom.append(1, ' ').append(args.suivant(quoi));
        }
        if (nom == "servir") return servir(*base, args, sortie);
        auto commande = commandes().find(nom);
        if (commande == commandes().end()) throw ErreurUsage("commande inconnue : " + nom);
        if (!commande->second.creeLaBase && !std::filesystem::exists(*base))
            throw ErreurFamille("base introuvable : " + *base +
                                " (« enfant ajouter » ou « servir » la crée)");
        Depot depot(*base, commande->second.creeLaBase ? Base::Ouverture::creer
                                                       : Base::Ouverture::existante);
        Contexte contexte{args, depot, sortie, maintenantMs()};
        commande->second.faire(contexte);
        return 0;
    } catch (const ErreurUsage& e) {
        erreurs << "tavi-famille: " << e.what() << " (tavi-famille --aide)\n";
    } catch (const std::exception& e) {
        erreurs << "tavi-famille: " << e.what() << '\n';
    }
    return 2;
}

} // namespace tavi::famille
