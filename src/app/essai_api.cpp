#include "app/essai_api.h"

#include "rules/consigne_json.h"
#include "rules/json_strict.h"
#include "server/corps_battement.h"
#include "server/stockage.h"
#include "server/transport_curl.h"

#include <ctime>

namespace tavi {

namespace {

constexpr int minutesDemandees = 10;

std::string enUtc(std::int64_t ms) {
    std::time_t t = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    char texte[32] = "?";
    if (gmtime_r(&t, &utc)) std::strftime(texte, sizeof texte, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return texte;
}

std::string membres(const Consigne& consigne) {
    std::string liste;
    const auto encodee = encoderConsigne(consigne);
    for (const auto& [nom, valeur] : encodee.items())
        liste += (liste.empty() ? "" : ", ") + versSnake(nom);
    return liste.empty() ? "aucun membre" : liste;
}

} // namespace

EssaiApi::EssaiApi(const std::string& serveur, std::string code, Boucle& boucle,
                   const Systeme& systeme, std::ostream& sortie)
    : code_(std::move(code)), systeme_(systeme), sortie_(sortie),
      api_(serveur, std::nullopt, std::make_shared<TransportCurl>(), boucle, reglages_) {
    api_.jetonNeuf = [this](const std::string& jeton) { Trousseau::ecrire(coffre_, jeton); };
}

void EssaiApi::demarrer(std::function<void(int)> fini) {
    fini_ = std::move(fini);
    dire(true, "serveur " + api_.base() + ", installation " + Stockage::installation(reglages_));
    rejoindre();
}

void EssaiApi::dire(bool reussi, const std::string& ligne) {
    toutBon_ = toutBon_ && reussi;
    // Escaped here, not when decoded: the same texts go intact to the child's windows.
    sortie_ << (reussi ? "ok " : "échec ") << pourTerminal(ligne) << std::endl;
}

void EssaiApi::rejoindre() {
    const std::string nom = systeme_.nomOrdinateur().value_or("Ordinateur");
    api_.rejoindre(code_, nom, TAVI_VERSION, [this](ResultatApi<Rejoindre> r) {
        if (!r) {
            dire(false, "rejoindre : " + decrire(r.error()));
            dire(false, "battement : pas de jeton sans rejoindre");
            dire(false, "demande : pas de jeton sans rejoindre");
            return fini_(1);
        }
        // The token is kept like the agent keeps it, and never printed.
        Trousseau::ecrire(coffre_, r->jeton);
        api_.definirJeton(r->jeton);
        dire(true, "rejoindre : enfant " + r->enfant.prenom +
                       (r->enfant.langue ? " (langue " + *r->enfant.langue + ")" : "") +
                       ", ordinateur " + r->ordinateur.id + " « " + r->ordinateur.nom + " »");
        battre();
    });
}

void EssaiApi::battre() {
    nlohmann::json corps = clesFixesBattement(systeme_, TAVI_VERSION, EtatAgent{});
    api_.appel("POST", "/api/enfant/battement", std::move(corps),
               [this](ResultatApi<std::string> r) {
                   if (!r) {
                       dire(false, "battement : " + decrire(r.error()));
                   } else if (auto consigne = decoderConsigne(*r); !consigne) {
                       dire(false, "battement : consigne illisible : " + consigne.error().message);
                   } else {
                       std::string heure = consigne->heureServeurMs
                                               ? std::to_string(*consigne->heureServeurMs) + " (" +
                                                     enUtc(*consigne->heureServeurMs) + ")"
                                               : "absente";
                       dire(true, "battement : consigne avec " + membres(*consigne) +
                                      " ; heure du serveur " + heure);
                   }
                   demander();
               });
}

void EssaiApi::demander() {
    api_.demanderTemps(minutesDemandees, [this](ResultatApi<Api::Rien> r) {
        if (r)
            dire(true, "demande : " + std::to_string(minutesDemandees) + " minutes demandées");
        else
            dire(false, "demande : " + decrire(r.error()));
        fini_(toutBon_ ? 0 : 1);
    });
}

} // namespace tavi
