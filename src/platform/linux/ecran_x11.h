#pragma once

#include "platform/linux/affichage_x11.h"

#include <memory>
#include <optional>

namespace tavi {

// What the X server knows of the screen and of the user in front of it: the time since the last
// input (MIT-SCREEN-SAVER) and the screens' power state (DPMS). Main thread only; each answer is
// one quick round trip. Absent where there is no X server, or no longer one.
class EcranX11 {
public:
    // `affichage` null: no X server.
    explicit EcranX11(std::shared_ptr<AffichageX11> affichage);

    // Seconds since the last keyboard or pointer input; absent without the extension.
    std::optional<double> secondesInactivite() const;
    // True when DPMS has put the screens in any state but On. Without DPMS, or with it disabled
    // or not capable, the screens are taken as awake: nothing else can put them to sleep.
    std::optional<bool> ecransEnVeille() const;

private:
    std::shared_ptr<AffichageX11> affichage;
    bool economiseur = false;
    bool dpms = false;
};

} // namespace tavi
