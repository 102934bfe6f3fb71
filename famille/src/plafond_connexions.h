#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace tavi::famille {

// Counts open connections per address key and in all. A place is taken at accept and given
// back when the connection ends, whatever thread ends it.
class PlafondConnexions {
public:
    class Place {
    public:
        Place(PlafondConnexions& plafond, std::string cle);
        Place(Place&& autre) noexcept;
        Place& operator=(Place&&) = delete;
        Place(const Place&) = delete;
        ~Place();

    private:
        PlafondConnexions* plafond;
        std::string cle;
    };

    // A place, or why there is none.
    struct Obtention {
        std::optional<Place> place;
        bool serveurPlein = false; // else the address is at its own bound
    };

    PlafondConnexions(std::size_t parAdresse, std::size_t total);

    // With `auDelaDuTotal`, only the address's bound applies: the caller has just ended
    // another connection, whose place comes back as soon as its socket is closed.
    Obtention prendre(const std::string& cle, bool auDelaDuTotal = false);
    // Waits at most until `echeance` for every place to be given back; true when they all are.
    bool attendreVide(std::chrono::steady_clock::time_point echeance);

private:
    void rendre(const std::string& cle);

    std::size_t parAdresse;
    std::size_t total;
    std::size_t ouvertes = 0;
    std::mutex verrou;
    std::condition_variable vide;
    std::unordered_map<std::string, std::size_t> parCle;
};

} // namespace tavi::famille
