#include "server/stockage.h"

#include "generique/identifiant.h"
#include "rules/consigne_json.h"
#include "server/jeton.h"

#include <algorithm>
#include <curl/curl.h>
#include <mutex>
#include <vector>

namespace tavi {

bool Stockage::estUneAdresse(std::string_view texte) {
    CURLU* url = curl_url();
    bool valide = false;
    const std::string adresse(texte);
    if (curl_url_set(url, CURLUPART_URL, adresse.c_str(), 0) == CURLUE_OK) {
        char* schema = nullptr;
        char* hote = nullptr;
        if (curl_url_get(url, CURLUPART_SCHEME, &schema, 0) == CURLUE_OK &&
            curl_url_get(url, CURLUPART_HOST, &hote, 0) == CURLUE_OK) {
            std::string_view s(schema);
            valide = (s == "http" || s == "https") && hote[0] != '\0';
        }
        curl_free(schema);
        curl_free(hote);
    }
    curl_url_cleanup(url);
    return valide;
}

std::string Stockage::serveur(const Reglages& reglages) {
    if (auto adresse = reglages.texte("serveur"); adresse && estUneAdresse(*adresse))
        return *adresse;
    return std::string(adresseParDefaut);
}

std::optional<Consigne> Stockage::consigneRangee(const Reglages& reglages) {
    auto donnees = reglages.donnees("consigne");
    if (!donnees) return std::nullopt;
    auto consigne = decoderConsigne(*donnees);
    if (!consigne) return std::nullopt;
    return std::move(consigne).value();
}

std::set<std::string> Stockage::clesRequises(const std::optional<Consigne>& consigne) {
    std::set<std::string> cles;
    if (!consigne) return cles;
    if (consigne->rapportApplis && consigne->rapportApplis->actif == true) cles.insert("rapport");
    if (consigne->historiqueSites && consigne->historiqueSites->actif == true)
        cles.insert("historique");
    return cles;
}

bool Stockage::accordCouvre(const Reglages& reglages, const std::optional<Consigne>& consigne) {
    if (!reglages.booleen("accord_vu").value_or(false)) return false;
    const auto acceptees = reglages.textes("accord_cles").value_or(std::vector<std::string>{});
    const auto requises = clesRequises(consigne);
    return std::all_of(requises.begin(), requises.end(), [&](const std::string& cle) {
        return std::find(acceptees.begin(), acceptees.end(), cle) != acceptees.end();
    });
}

void Stockage::consentir(Reglages& reglages, const std::optional<Consigne>& consigne) {
    const auto cles = clesRequises(consigne);
    reglages.grouper([&] {
        reglages.ecrire("accord_vu", true);
        reglages.ecrire("accord_cles", std::vector<std::string>(cles.begin(), cles.end()));
    });
}

std::string Stockage::installation(Reglages& reglages) {
    if (auto existante = reglages.texte("installation")) return *existante;
    // A store that refuses writes must not make a new installation of every request: the
    // server counts its limits per installation. The identifier it could not keep is kept by
    // the process and offered again at each call, until a store takes it.
    static std::mutex verrou;
    static std::optional<std::string> nonGardee;
    std::lock_guard garde(verrou);
    if (!nonGardee) {
        nonGardee = uuidAuHasard();
        for (char& c : *nonGardee)
            if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    }
    const std::string uuid = *nonGardee;
    reglages.ecrire("installation", uuid);
    if (reglages.texte("installation") == uuid) nonGardee.reset();
    return uuid;
}

void Stockage::resteBase(Reglages& reglages,
                         const std::optional<std::pair<double, std::string>>& base) {
    reglages.grouper([&] {
        if (base) {
            reglages.ecrire("reste_base_s", base->first);
            reglages.ecrire("reste_jour_de", base->second);
        } else {
            reglages.supprimer("reste_base_s");
            reglages.supprimer("reste_jour_de");
        }
    });
}

void Stockage::oublier(Reglages& reglages) {
    reglages.grouper([&] {
        for (const char* cle : {"prenom", "ordinateur_id", "accord_vu", "accord_cles", "consigne",
                                "reste_base_s", "reste_jour_de"})
            reglages.supprimer(cle);
    });
}

std::optional<std::string> Trousseau::lire(const Coffre& coffre) {
    auto jeton = coffre.lire(service, compte);
    if (jeton && !jetonValide(*jeton)) return std::nullopt;
    return jeton;
}

void Trousseau::ecrire(Coffre& coffre, const std::string& jeton) {
    if (jetonValide(jeton)) coffre.ecrire(service, compte, jeton);
}

void Trousseau::effacer(Coffre& coffre) {
    coffre.supprimer(service, compte);
}

} // namespace tavi
