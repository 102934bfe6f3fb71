#pragma once

#include "depot.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tavi::famille {

// The server's connections to the store, lent to one request at a time. SQLite serialises
// writers anyway, and every request here writes; with one connection the requests queue on
// a mutex instead of polling SQLite's lock with its sleeping busy handler.
class Connexions {
public:
    Connexions(std::string chemin, std::size_t maximum);

    template <typename F>
    auto avec(F&& travail) {
        Pret pret(*this);
        return travail(*pret.depot);
    }

private:
    struct Pret {
        explicit Pret(Connexions& c) : connexions(c), depot(c.prendre()) {}
        ~Pret() { connexions.rendre(std::move(depot)); }
        Pret(const Pret&) = delete;
        Pret& operator=(const Pret&) = delete;
        Connexions& connexions;
        std::unique_ptr<Depot> depot;
    };

    std::unique_ptr<Depot> prendre();
    void rendre(std::unique_ptr<Depot> depot);

    std::string chemin;
    std::size_t maximum;
    std::size_t ouvertes = 0;
    std::mutex verrou;
    std::condition_variable libre;
    std::vector<std::unique_ptr<Depot>> libres;
};

} // namespace tavi::famille
