#pragma once

#include <cstddef>
#include <mutex>
#include <optional>

namespace tavi::famille {

// The bytes of request bodies being read or handled, server-wide. Each connection alone is
// bounded by its path's body limit; this bounds them all together, so that clients holding
// unfinished bodies open cannot add up to gigabytes.
class BudgetCorps {
public:
    class Reservation {
    public:
        Reservation(BudgetCorps& budget, std::size_t octets);
        Reservation(Reservation&& autre) noexcept;
        Reservation& operator=(Reservation&& autre) noexcept;
        Reservation(const Reservation&) = delete;
        ~Reservation();

    private:
        BudgetCorps* budget;
        std::size_t octets;
    };

    explicit BudgetCorps(std::size_t total);

    // Nothing when `octets` more would pass the total.
    std::optional<Reservation> reserver(std::size_t octets);

private:
    void rendre(std::size_t octets);

    std::size_t total;
    std::size_t pris = 0;
    std::mutex verrou;
};

} // namespace tavi::famille
