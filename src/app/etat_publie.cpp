#include "app/etat_publie.h"

#include "app/json_sortie.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tavi {

namespace {

nlohmann::ordered_json voileEnJson(const Voile& voile) {
    const auto& motif = voile.motif();
    if (!motif) return nullptr;
    return {
        {"motif", motif->estPause() ? "pause" : "appli"},
        {"nom", motif->estPause() ? nlohmann::ordered_json() : nlohmann::ordered_json(motif->nom)},
        {"cause", motif->regle.cause}};
}

nlohmann::ordered_json resteEnJson(const std::optional<double>& secondes) {
    if (!secondes) return nullptr;
    // A remainder computed as 5400.000001 is still 90 minutes.
    const double minutes = std::ceil(*secondes / 60.0 - 1e-6);
    return static_cast<std::int64_t>(std::max(0.0, minutes)) * 60;
}

} // namespace

nlohmann::ordered_json etatPublie(Moteur& moteur) {
    const auto& message = moteur.messageVoile();
    return {{"relie", moteur.relie()},
            {"regle", regleEnJson(moteur.regle())},
            {"voile", voileEnJson(moteur.voile())},
            {"reste_secondes", resteEnJson(moteur.resteSecondes())},
            {"message", message ? nlohmann::ordered_json(*message) : nlohmann::ordered_json()}};
}

SortieEtat::SortieEtat(Moteur& moteur, std::ostream& sortie)
    : moteur_(moteur), sortie_(sortie), abonnement_(moteur.observer([this] { publier(); })) {}

SortieEtat::~SortieEtat() = default;

void SortieEtat::publier() {
    std::string ligne = ligneJson(etatPublie(moteur_));
    if (ligne == derniere_) return;
    sortie_ << ligne << std::endl;
    derniere_ = std::move(ligne);
}

} // namespace tavi
