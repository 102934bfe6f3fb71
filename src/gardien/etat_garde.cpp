#include "gardien/etat_garde.h"

#include "gardien/fichiers_root.h"
#include "gardien/journal.h"
#include "rules/consigne_json.h"

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace tavi {

namespace {

constexpr std::int64_t periodeMs = 30'000;
// A day has fewer seconds than this: a larger stored count was not written by us.
constexpr double secondesMax = 26 * 3600;

bool reactionConnue(const std::string& r) {
    return r == "signaler" || r == "verrouiller" || r == "fermer_session";
}

double sures(const nlohmann::json& v) {
    if (!v.is_number()) return 0;
    const double s = v.get<double>();
    return std::isfinite(s) && s >= 0 && s <= secondesMax ? s : 0;
}

} // namespace

std::string reactionDe(const std::string& corps) {
    const auto document = nlohmann::json::parse(corps, nullptr, false);
    if (!document.is_object()) return "verrouiller";
    const auto it = document.find("reaction_voile");
    return it != document.end() && it->is_string() && reactionConnue(it->get<std::string>())
               ? it->get<std::string>()
               : "verrouiller";
}

EtatGarde::EtatGarde(std::string chemin) : chemin_(std::move(chemin)) {
    auto lu = lireFichierRoot(chemin_, tailleMaxConsigne + 4096, 0600);
    if (!lu) return;
    const auto document = nlohmann::json::parse(*lu, nullptr, false);
    if (!document.is_object()) return;
    if (const auto j = document.find("jour"); j != document.end() && j->is_string())
        jour_ = j->get<std::string>();
    secondes_ = sures(document.value("secondes", nlohmann::json()));
    if (const auto d = document.find("depuis_consigne_s"); d != document.end() && d->is_number())
        depuisConsigne_ = sures(*d);
    if (const auto c = document.find("consigne"); c != document.end() && c->is_string()) {
        const std::string corps = c->get<std::string>();
        if (auto consigne = decoderConsigne(corps)) {
            consigne_ = std::move(*consigne);
            reaction_ = reactionDe(corps);
            texteConsigne_ = corps;
        }
    }
}

void EtatGarde::compter(const std::string& jour, double secondes) {
    if (!(secondes > 0) || !std::isfinite(secondes)) return;
    if (jour != jour_) {
        jour_ = jour;
        secondes_ = 0;
    }
    secondes_ = std::min(secondesMax, secondes_ + secondes);
    if (depuisConsigne_) *depuisConsigne_ += secondes;
    change_ = true;
}

double EtatGarde::secondesDuJour(const std::string& jour) const {
    return jour == jour_ ? secondes_ : 0;
}

void EtatGarde::consigneRecue(Consigne consigne, const std::string& texte) {
    consigne_ = std::move(consigne);
    reaction_ = reactionDe(texte);
    texteConsigne_ = texte;
    depuisConsigne_ = 0;
    change_ = true;
}

void EtatGarde::enregistrer(std::int64_t maintenantMs, bool force) {
    if (!change_ || (!force && enregistreMs_ >= 0 && maintenantMs - enregistreMs_ < periodeMs))
        return;
    change_ = false;
    enregistreMs_ = maintenantMs;
    nlohmann::json document = {{"jour", jour_}, {"secondes", secondes_}};
    if (depuisConsigne_) document["depuis_consigne_s"] = *depuisConsigne_;
    if (consigne_) document["consigne"] = texteConsigne_;
    const auto dossier = std::filesystem::path(chemin_).parent_path().string();
    auto ecrit = dossierRoot(dossier);
    if (ecrit) ecrit = remplacerFichier(chemin_, document.dump(-1, ' ', false,
                                                              nlohmann::json::error_handler_t::replace),
                                        0600);
    if (!ecrit) journal("compte du gardien non enregistré : " + ecrit.error());
}

} // namespace tavi
