#include "connexions.h"

namespace tavi::famille {

Connexions::Connexions(std::string chemin_, std::size_t maximum_)
    : chemin(std::move(chemin_)), maximum(maximum_ == 0 ? 1 : maximum_) {
    // Opened once at once, so that a file that is not a usable base fails at start-up.
    libres.push_back(std::make_unique<Depot>(chemin, Base::Ouverture::creer));
    ouvertes = 1;
}

std::unique_ptr<Depot> Connexions::prendre() {
    std::unique_lock garde(verrou);
    libre.wait(garde, [&] { return !libres.empty() || ouvertes < maximum; });
    if (!libres.empty()) {
        auto depot = std::move(libres.back());
        libres.pop_back();
        return depot;
    }
    ++ouvertes;
    garde.unlock();
    try {
        return std::make_unique<Depot>(chemin, Base::Ouverture::existante);
    } catch (...) {
        std::lock_guard retour(verrou);
        --ouvertes;
        libre.notify_one();
        throw;
    }
}

void Connexions::rendre(std::unique_ptr<Depot> depot) {
    {
        std::lock_guard garde(verrou);
        libres.push_back(std::move(depot));
    }
    libre.notify_one();
}

} // namespace tavi::famille
