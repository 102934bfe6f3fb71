#include "platform/linux/applications_xdg.h"

#include "platform/linux/index_entrees.h"

#include <algorithm>

namespace tavi {

ApplicationsXdg::ApplicationsXdg(EnvironnementXdg environnement)
    : environnement_(std::move(environnement)) {}

std::vector<ApplicationInstallee> ApplicationsXdg::lire(std::size_t plafond) const {
    const auto index = IndexEntrees::charger(environnement_);
    std::vector<ApplicationInstallee> applications;
    for (const auto& e : index->entrees()) {
        if (applications.size() >= plafond) break;
        if (!e.visible) continue;
        // An entry a menu lists opens a window: none is a background-only program.
        applications.push_back({e.identifiant, e.entree.nom.empty() ? e.identifiant : e.entree.nom,
                                e.categorie, false});
    }
    return applications;
}

std::set<std::string> ApplicationsXdg::navigateurs() const {
    const auto index = IndexEntrees::charger(environnement_);
    std::set<std::string> navigateurs;
    for (const auto& e : index->entrees())
        if (std::ranges::count(e.entree.typesMime, "x-scheme-handler/https") > 0)
            navigateurs.insert(e.identifiant);
    return navigateurs;
}

} // namespace tavi
