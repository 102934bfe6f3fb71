#include "observation/historique.h"

#include <algorithm>
#include <cmath>

namespace tavi {

namespace {

constexpr double heureSecondes = 3600;
constexpr std::int64_t heureMs = 3'600'000;
// A child offline for days on a site that makes a fresh subdomain per page would otherwise
// grow the batch without end; past this many domain-hours, new ones are not kept.
constexpr std::size_t entreesMax = 10'000;

} // namespace

void Historique::noter(const std::string& domaine, double dt, std::int64_t maintenant) {
    const double secondes = dt > 0 ? dt : 0;
    const std::string cle = domaine + "|" + std::to_string(maintenant / heureMs);
    if (auto it = lot.find(cle); it != lot.end()) {
        it->second.secondes = std::min(it->second.secondes + secondes, heureSecondes);
        it->second.dernier = maintenant;
        return;
    }
    if (lot.size() >= entreesMax) return;
    lot.emplace(cle, Entree{maintenant, maintenant, std::min(secondes, heureSecondes)});
}

std::optional<nlohmann::json> Historique::prendre() {
    if (lot.empty()) return std::nullopt;
    enCours = std::move(lot);
    lot.clear();
    nlohmann::json entrees = nlohmann::json::array();
    for (const auto& [cle, entree] : enCours)
        entrees.push_back({{"d", cle.substr(0, cle.find('|'))},
                           {"p", entree.premier},
                           {"f", entree.dernier},
                           {"s", static_cast<std::int64_t>(std::round(entree.secondes))}});
    return entrees;
}

void Historique::echec() {
    for (const auto& [cle, entree] : enCours)
        fusionner(cle, entree);
    enCours.clear();
}

void Historique::fusionner(const std::string& cle, const Entree& entree) {
    auto it = lot.find(cle);
    if (it == lot.end()) {
        if (lot.size() < entreesMax) lot.emplace(cle, entree);
        return;
    }
    // What came since is the newer: its last observation stays.
    it->second.premier = std::min(entree.premier, it->second.premier);
    it->second.secondes = std::min(entree.secondes + it->second.secondes, heureSecondes);
}

} // namespace tavi
