#include "battement.h"
#include "lecture.h"
#include "serveur.h"

namespace tavi::famille {

using nlohmann::json;

namespace {

bool installationValide(const std::string& installation) {
    if (installation.empty() || installation.size() > 128) return false;
    for (unsigned char c : installation)
        if (c < 0x21 || c > 0x7e) return false;
    return true;
}

} // namespace

void Serveur::installerRoutes() {
    poster("/api/auth/ordinateur",
           [this](Depot& depot, const RequeteHttp& req, const json& corps,
                  std::int64_t maintenant) { return appairer(depot, req, corps, maintenant); });
    posterEnfant("/api/enfant/battement", battre, tailleMaxCorps);
    posterEnfant("/api/enfant/demandes", demander);
    posterEnfant("/api/enfant/tirelire/utiliser", utiliserTirelire);
    posterEnfant("/api/enfant/signal", signaler);
}

Serveur::Reponse Serveur::appairer(Depot& depot, const RequeteHttp& req, const json& corps,
                                   std::int64_t maintenant) {
    std::string installation = req.entete("x-tavi-installation");
    if (!installationValide(installation))
        throw ErreurRequete(400, "L'en-tête X-Tavi-Installation manque ou est invalide.");
    // Both keys count: one installation trying from many addresses, or one address trying
    // with invented installation identifiers; the limiter also bounds the whole family.
    std::string parInstallation = "installation " + installation;
    std::string parAdresse = "adresse " + req.adresse;
    if (limiteur.bloque({parInstallation, parAdresse}, maintenant))
        throw ErreurRequete(429, "Trop d'essais. Attends quelques minutes avant de réessayer.");
    Champs champs(corps);
    std::string code = champs.texte("code", 64);
    std::string nom = champs.texte("nom", 100);
    std::string version = champs.texte("version", 64);
    if (nom.empty()) nom = "Ordinateur";
    auto appairage = depot.appairer(code, installation, nom, version, maintenant);
    if (!appairage) {
        limiteur.noterEchec({parInstallation, parAdresse}, maintenant);
        throw ErreurRequete(400, "Code inconnu ou expiré.");
    }
    return {
        200,
        json{{"jeton", appairage->jeton},
             {"enfant",
              {{"id", appairage->enfant.id},
               {"prenom", appairage->enfant.prenom},
               {"langue", appairage->enfant.langue}}},
             {"ordinateur", {{"id", appairage->ordinateurId}, {"nom", appairage->ordinateurNom}}}},
        std::nullopt};
}

Serveur::Reponse Serveur::battre(Depot& depot, const Acces& acces, const json& corps,
                                 std::int64_t maintenant) {
    Battement battement = lireBattement(corps, maintenant);
    return {200, depot.battre(acces, battement, maintenant), std::nullopt};
}

Serveur::Reponse Serveur::demander(Depot& depot, const Acces& acces, const json& corps,
                                   std::int64_t maintenant) {
    Champs champs(corps);
    std::string genre = champs.texte("type", 32);
    if (genre != "temps") throw ErreurRequete(400, "Type de demande inconnu : " + genre + ".");
    auto minutes = champs.entier("minutes", 1, 1440);
    std::string texte = champs.texteOptionnel("texte", 500).value_or("");
    auto id = depot.demander(acces, genre, minutes, texte, maintenant);
    if (!id)
        throw ErreurRequete(429, "Tes parents n'ont pas encore répondu à tes demandes. Attends "
                                 "leur réponse.");
    return {201, json{{"id", std::to_string(*id)}, {"statut", "en_attente"}}, std::nullopt};
}

Serveur::Reponse Serveur::utiliserTirelire(Depot& depot, const Acces& acces, const json& corps,
                                           std::int64_t maintenant) {
    auto minutes = Champs(corps).entier("minutes", 1, 1440);
    switch (depot.utiliserTirelire(acces, minutes, maintenant)) {
    case ResultatTirelire::pasDeLimite:
        throw ErreurRequete(409, "Pas besoin de ta tirelire : tu n'as pas de limite aujourd'hui.");
    case ResultatTirelire::pasAssez:
        throw ErreurRequete(409, "Pas assez de minutes dans ta tirelire.");
    case ResultatTirelire::fait:
        break;
    }
    auto enfant = depot.enfantParId(acces.enfantId);
    auto c = depot.consigneDe(*enfant, acces.ordinateurId, maintenant);
    return {
        200,
        json{{"tirelire_min", c.at("tirelire_min")}, {"reste_jour_min", c.at("reste_jour_min")}},
        std::nullopt};
}

Serveur::Reponse Serveur::signaler(Depot& depot, const Acces& acces, const json& corps,
                                   std::int64_t maintenant) {
    Champs champs(corps);
    if (!depot.signaler(acces, champs.texte("nature", 64), champs.texte("detail", 2048),
                        maintenant))
        throw ErreurRequete(429, "Cet ordinateur a envoyé trop de signaux aujourd'hui. Ils "
                                 "reprendront demain.");
    return {204, std::nullopt, std::nullopt};
}

} // namespace tavi::famille
