#pragma once

#include "platform/applications.h"
#include "platform/boucle.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace tavi {

// The identifiers of the browsers on the computer: those that open web addresses, and every
// readable one, installed or not; never the agent. The web filter asks on every tick, so the
// answer comes from memory; asking the system is slow, so the set is refreshed in the
// background when it is 10 minutes old.
//
// Main thread only. `boucle` and `applications` must outlive the object.
class NavigateursInstalles {
public:
    NavigateursInstalles(Boucle& boucle, const Applications& applications,
                         std::function<std::int64_t()> muraleMs);

    // The last set computed (at first, the readable browsers alone). Starts one refresh when
    // the set is 600 s old on the wall clock, or when the wall clock went back.
    const std::set<std::string>& installes();

private:
    void rafraichir();

    Boucle& boucle;
    const Applications& applications;
    std::function<std::int64_t()> muraleMs;
    std::set<std::string> ensemble;
    std::optional<std::int64_t> calculeMs;
    bool enCours = false;
    std::shared_ptr<int> vivant = std::make_shared<int>(0);
};

} // namespace tavi
