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

    PlafondConnexions(std::size_t parAdresse, std::size_t total);

    // No place when the address or the server is at its bound.
    std::optional<Place> prendre(const std::string& cle);
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
