#pragma once

#include "platform/applications.h"
#include "platform/linux/environnement_xdg.h"

namespace tavi {

// The installed applications as the desktop entries of the XDG data folders declare them
// (Flatpak and Snap exports included): the entries a menu of the current desktop lists.
class ApplicationsXdg : public Applications {
public:
    explicit ApplicationsXdg(EnvironnementXdg environnement);

    // Reads the folders afresh at each call. Records follow the entry ids' order.
    std::vector<ApplicationInstallee> lire(std::size_t plafond) const override;
    // Entries opening https addresses, listed in a menu or not: a browser's second entry (a
    // private window, a profile manager) is hidden and still a browser.
    std::set<std::string> navigateurs() const override;

private:
    EnvironnementXdg environnement_;
};

} // namespace tavi
