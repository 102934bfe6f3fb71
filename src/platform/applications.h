#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavi {

// One application installed on the computer, as its description declares it.
struct ApplicationInstallee {
    std::string identifiant;
    std::string nom;
    // In the "public.app-category.*" form; absent when it declares none.
    std::optional<std::string> categorie;
    // Runs without a window of its own: never shown to the parents.
    bool arrierePlan = false;
    friend bool operator==(const ApplicationInstallee&, const ApplicationInstallee&) = default;
};

// The applications installed for this user, as a menu of the desktop would list them.
//
// Blocking: reads the disk. Call it from the background pool, never on the main thread; it
// keeps no state between calls, so several threads may use it at once.
class Applications {
public:
    virtual ~Applications() = default;

    // The installed applications, each identifier once, in no particular order. Reading stops
    // between two descriptions once `plafond` records are held, so that a scan never grows
    // far beyond it.
    virtual std::vector<ApplicationInstallee> lire(std::size_t plafond) const = 0;
    // The identifiers of the applications that open web addresses (https).
    virtual std::set<std::string> navigateurs() const = 0;
};

} // namespace tavi
