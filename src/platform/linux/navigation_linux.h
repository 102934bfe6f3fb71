#pragma once

#include "platform/navigation.h"

namespace tavi {

// Browsers on Linux offer no scripting of their front tab that works for every user without
// setting something up first, so for now every browser is unreadable: while the site filter
// is on, a browser that cannot be watched naps, and with the filter off it is ignored.
class NavigationLinux : public Navigation {
public:
    bool sait(const std::string&) const override { return false; }
    Lecture lire(const std::string& identifiant) override;
    void vider(const std::string& identifiant) override;
};

} // namespace tavi
