#include "limiteur.h"

#include <algorithm>

namespace tavi::famille {

Limiteur::Limiteur(std::size_t echecsParCle_, std::size_t echecsEnTout_, std::int64_t fenetreMs_)
    : echecsParCle(echecsParCle_), echecsEnTout(echecsEnTout_), fenetreMs(fenetreMs_) {}

void Limiteur::oublierAnciens(std::deque<std::int64_t>& instants, std::int64_t maintenantMs) const {
    while (!instants.empty() && instants.front() <= maintenantMs - fenetreMs)
        instants.pop_front();
}

bool Limiteur::bloque(std::initializer_list<std::string> cles, std::int64_t maintenantMs) {
    std::lock_guard garde(verrou);
    oublierAnciens(tous, maintenantMs);
    if (tous.size() >= echecsEnTout) return true;
    for (const auto& cle : cles) {
        auto trouve = echecs.find(cle);
        if (trouve == echecs.end()) continue;
        oublierAnciens(trouve->second, maintenantMs);
        if (trouve->second.size() >= echecsParCle) return true;
    }
    return false;
}

void Limiteur::noterEchec(std::initializer_list<std::string> cles, std::int64_t maintenantMs) {
    std::lock_guard garde(verrou);
    // Keys are sent by the client, so the table is swept now and then or it would grow with
    // every invented installation identifier. A sweep runs once the table has doubled since
    // the last, so that a table full of keys still in their window is not swept every time.
    if (echecs.size() > seuilBalayage) {
        for (auto it = echecs.begin(); it != echecs.end();) {
            oublierAnciens(it->second, maintenantMs);
            it = it->second.empty() ? echecs.erase(it) : std::next(it);
        }
        seuilBalayage = std::max<std::size_t>(1000, echecs.size() * 2);
    }
    tous.push_back(maintenantMs);
    for (const auto& cle : cles)
        echecs[cle].push_back(maintenantMs);
}

} // namespace tavi::famille
