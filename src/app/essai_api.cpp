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

// The length of the UTF-8 sequence at the start of `s`, or 0 when it is not a valid one
// (overlong forms, surrogates and code points past U+10FFFF included).
std::size_t longueurUtf8(std::string_view s, char32_t& point) {
    const auto octet = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char c = octet(0);
    std::size_t n = 0;
    if (c < 0x80) {
        point = c;
        return 1;
    }
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        point = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        point = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        point = c & 0x07;
    } else {
        return 0;
    }
    if (s.size() < n) return 0;
    for (std::size_t i = 1; i < n; ++i) {
        if ((octet(i) & 0xC0) != 0x80) return 0;
        point = (point << 6) | (octet(i) & 0x3F);
    }
    const char32_t minimum = n == 2 ? 0x80 : n == 3 ? 0x800 : 0x10000;
    if (point < minimum || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return 0;
    return n;
}

} // namespace

std::string pourTerminal(std::string_view texte) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string sur;
    while (!texte.empty()) {
        char32_t point = 0;
        const std::size_t n = longueurUtf8(texte, point);
        if (n == 0 || point < 0x20 || point == 0x7F) {
            const auto c = static_cast<unsigned char>(texte[0]);
            sur += {'\\', 'x', hex[c >> 4], hex[c & 0xF]};
            texte.remove_prefix(1);
            continue;
        }
        if (point >= 0x80 && point <= 0x9F)
            sur += {'\\', 'u', '{', hex[point >> 4], hex[point & 0xF], '}'};
        else
            sur += texte.substr(0, n);
        texte.remove_prefix(n);
    }
    return sur;
}

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
