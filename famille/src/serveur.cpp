#include "serveur.h"

#include "lecture.h"
#include "temps.h"

#include <iostream>

namespace tavi::famille {

using nlohmann::json;

namespace {

// A code has 31^8 (8.5e11) values and lives a quarter of an hour: even at the family's bound
// all the time, a guesser gets 15,000 tries at each code, one chance in 57 million. Locking
// the family out takes a thousand addresses (IPv6: /56 networks) failing ten times each.
constexpr std::size_t echecsParCle = 10;
constexpr std::size_t echecsFamille = 10000;
constexpr std::int64_t fenetreEchecsMs = 10 * 60 * 1000;

ReponseHttp refuser(int statut, const std::string& detail) {
    return {statut, json{{"detail", detail}}.dump(), {}};
}

} // namespace

Serveur::Serveur(const std::string& cheminBase, OptionsServeur options_)
    : options(std::move(options_)), connexions(cheminBase, options.connexionsBase),
      limiteur(echecsParCle, echecsFamille, fenetreEchecsMs) {
    installerRoutes();
    ReglagesEcoute reglages;
    reglages.hote = options.hote;
    reglages.port = options.port;
    reglages.certificat = options.certificat;
    reglages.cle = options.cle;
    reglages.connexionsParAdresse = options.connexionsParAdresse;
    reglages.connexionsTotal = options.connexionsTotal;
    reglages.octetsCorpsEnCours = options.octetsCorpsEnCours;
    for (const auto& [chemin, route] : routes)
        reglages.chemins[chemin] = {route.corpsMax, route.jeton};
    ecoute = std::make_unique<Ecoute>(
        std::move(reglages), [this](const RequeteHttp& r) { return traiter(r); },
        [this](const RequeteHttp& r) { return verifierTete(r); });
}

Serveur::~Serveur() {
    arreter();
}

bool Serveur::tls() const {
    return options.certificat.has_value();
}

ReponseHttp Serveur::traiter(const RequeteHttp& requete) {
    auto route = routes.find(requete.chemin);
    if (route == routes.end()) return refuser(404, "Adresse inconnue sur ce serveur.");
    try {
        json document = lireObjet(requete.corps);
        auto reponse = connexions.avec([&](Depot& depot) {
            Transaction t(depot.base());
            auto r = route->second.traitement(depot, requete, document, maintenantMs());
            t.valider();
            return r;
        });
        ReponseHttp http{reponse.statut, reponse.corps ? reponse.corps->dump() : "", {}};
        if (reponse.jetonNeuf) http.entetes.emplace_back("X-Tavi-Jeton", *reponse.jetonNeuf);
        return http;
    } catch (const ErreurRequete& e) {
        return refuser(e.statut, e.what());
    } catch (const std::exception& e) {
        std::cerr << "tavi-famille: " << requete.chemin << " : " << e.what() << '\n';
        return refuser(500, "Le serveur a un souci. Réessaie plus tard.");
    }
}

std::optional<ReponseHttp> Serveur::verifierTete(const RequeteHttp& tete) {
    try {
        connexions.avec([&](Depot& depot) { authentifier(depot, tete); });
        return std::nullopt;
    } catch (const ErreurRequete& e) {
        return refuser(e.statut, e.what());
    }
}

Acces Serveur::authentifier(Depot& depot, const RequeteHttp& requete) {
    std::string autorisation = requete.entete("authorization");
    const std::string prefixe = "Bearer ";
    if (autorisation.size() <= prefixe.size() || autorisation.size() > 512 ||
        autorisation.compare(0, prefixe.size(), prefixe) != 0)
        throw ErreurRequete(401, "Cet ordinateur n'est pas relié à ta famille.");
    auto acces = depot.authentifier(autorisation.substr(prefixe.size()));
    if (!acces)
        throw ErreurRequete(401, "Cet ordinateur n'est plus relié à ta famille. Demande un "
                                 "nouveau code à tes parents.");
    return *acces;
}

void Serveur::poster(const std::string& chemin, Traitement traitement, std::size_t corpsMax) {
    routes[chemin] = {std::move(traitement), corpsMax, false};
}

void Serveur::posterEnfant(const std::string& chemin, TraitementEnfant traitement,
                           std::size_t corpsMax) {
    // Checked again with the body: the token may have been revoked in between.
    routes[chemin] = {[this, traitement](Depot& depot, const RequeteHttp& req, const json& corps,
                                         std::int64_t maintenant) {
                          auto acces = authentifier(depot, req);
                          auto reponse = traitement(depot, acces, corps, maintenant);
                          if (reponse.statut >= 200 && reponse.statut < 300 &&
                              options.renouvelerApresMs &&
                              maintenant - acces.jetonCreeMs >= *options.renouvelerApresMs)
                              reponse.jetonNeuf = depot.renouvelerJeton(acces, maintenant);
                          return reponse;
                      },
                      corpsMax, true};
}

void Serveur::demarrer() {
    if (entretien.joinable()) return;
    port_ = ecoute->demarrer();
    entretien = std::thread([this] { entretenir(); });
}

void Serveur::entretenir() {
    std::unique_lock garde(verrouEntretien);
    do {
        garde.unlock();
        try {
            connexions.avec([](Depot& depot) { depot.elaguer(maintenantMs()); });
        } catch (const std::exception& e) {
            std::cerr << "tavi-famille: entretien : " << e.what() << '\n';
        }
        garde.lock();
    } while (!reveilEntretien.wait_for(garde, std::chrono::hours(1), [this] { return fin; }));
}

void Serveur::arreter() {
    {
        std::lock_guard garde(verrouEntretien);
        fin = true;
    }
    reveilEntretien.notify_all();
    if (entretien.joinable()) entretien.join();
    ecoute->arreter();
}

} // namespace tavi::famille
