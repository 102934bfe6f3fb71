#include "budget_corps.h"

#include <utility>

namespace tavi::famille {

BudgetCorps::Reservation::Reservation(BudgetCorps& budget_, std::size_t octets_)
    : budget(&budget_), octets(octets_) {}

BudgetCorps::Reservation::Reservation(Reservation&& autre) noexcept
    : budget(std::exchange(autre.budget, nullptr)), octets(autre.octets) {}

BudgetCorps::Reservation& BudgetCorps::Reservation::operator=(Reservation&& autre) noexcept {
    if (this != &autre) {
        if (budget) budget->rendre(octets);
        budget = std::exchange(autre.budget, nullptr);
        octets = autre.octets;
    }
    return *this;
}

BudgetCorps::Reservation::~Reservation() {
    if (budget) budget->rendre(octets);
}

BudgetCorps::BudgetCorps(std::size_t total_) : total(total_) {}

std::optional<BudgetCorps::Reservation> BudgetCorps::reserver(std::size_t octets) {
    std::lock_guard garde(verrou);
    if (octets > total - pris) return std::nullopt;
    pris += octets;
    return Reservation(*this, octets);
}

void BudgetCorps::rendre(std::size_t octets) {
    std::lock_guard garde(verrou);
    pris -= octets;
}

} // namespace tavi::famille
