#pragma once

#include "platform/abonnement.h"
#include "ui/menu_barre.h"

#include <functional>
#include <memory>

namespace tavi {

// What the status item needs of the engine: the state it shows and the operations behind its
// menu. `ActionsMoteur` is the engine's; the capture mode shows fixed states.
//
// Main thread only.
class ActionsBarre {
public:
    virtual ~ActionsBarre() = default;

    // Read at the instant the icon or the menu is drawn.
    virtual EtatBarre etatBarre() const = 0;
    // `quand` is called after every change of the state until the handle is destroyed.
    [[nodiscard]] virtual std::unique_ptr<Abonnement> observer(std::function<void()> quand) = 0;

    // `fini` is called on the main thread once the request is over, whatever its outcome (the
    // outcome itself comes back as the engine's message).
    virtual void demanderTemps(int minutes, std::function<void()> fini) = 0;
    virtual void utiliserTirelire(int minutes, std::function<void()> fini) = 0;
    // Whether a veil is up: it then tells the outcome of a request itself.
    virtual bool voileAffiche() const = 0;
    // Registers the login agent, then opens the desktop's list of applications started with
    // the session, so that the child sees it there.
    virtual void reglages() = 0;
};

} // namespace tavi
