#pragma once

#include "platform/applications.h"

#include <algorithm>
#include <atomic>

namespace tavi::test {

// Installed applications the test lists; counts the scans for browsers.
class FaussesApplications : public Applications {
public:
    std::vector<ApplicationInstallee> applis;
    std::set<std::string> ouvrentLeWeb;
    mutable std::atomic<int> recherchesNavigateurs{0};

    std::vector<ApplicationInstallee> lire(std::size_t plafond) const override {
        return {applis.begin(), applis.begin() + std::min(plafond, applis.size())};
    }
    std::set<std::string> navigateurs() const override {
        ++recherchesNavigateurs;
        return ouvrentLeWeb;
    }
};

} // namespace tavi::test
