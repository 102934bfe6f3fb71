#include "plafond_connexions.h"

#include <utility>

namespace tavi::famille {

PlafondConnexions::Place::Place(PlafondConnexions& plafond_, std::string cle_)
    : plafond(&plafond_), cle(std::move(cle_)) {}

PlafondConnexions::Place::Place(Place&& autre) noexcept
    : plafond(std::exchange(autre.plafond, nullptr)), cle(std::move(autre.cle)) {}

PlafondConnexions::Place::~Place() {
    if (plafond) plafond->rendre(cle);
}

PlafondConnexions::PlafondConnexions(std::size_t parAdresse_, std::size_t total_)
    : parAdresse(parAdresse_), total(total_) {}

PlafondConnexions::Obtention PlafondConnexions::prendre(const std::string& cle,
                                                        bool auDelaDuTotal) {
    std::lock_guard garde(verrou);
    auto trouve = parCle.find(cle);
    if (trouve != parCle.end() && trouve->second >= parAdresse) return {};
    if (ouvertes >= total && !auDelaDuTotal) return {std::nullopt, true};
    ++parCle[cle];
    ++ouvertes;
    return {Place(*this, cle)};
}

void PlafondConnexions::rendre(const std::string& cle) {
    std::lock_guard garde(verrou);
    auto trouve = parCle.find(cle);
    // Keys come from the network: one that drops to zero goes, or the table would keep
    // every address ever seen.
    if (trouve != parCle.end() && --trouve->second == 0) parCle.erase(trouve);
    if (--ouvertes == 0) vide.notify_all();
}

bool PlafondConnexions::attendreVide(std::chrono::steady_clock::time_point echeance) {
    std::unique_lock garde(verrou);
    return vide.wait_until(garde, echeance, [this] { return ouvertes == 0; });
}

} // namespace tavi::famille
