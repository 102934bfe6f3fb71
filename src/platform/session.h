#pragma once

#include "platform/abonnement.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

// The four changes of the session the usage counter follows.
enum class EvenementSession {
    ecransEnVeille,       // every screen went dark (display sleep)
    ecransEveilles,       // they came back
    sessionEnArriere,     // another session took the screen (user switch, greeter)
    sessionAuPremierPlan, // this session has the screen again
};

// What the usage counter observes of the user's session.
//
// Main thread only. Every answer comes from memory or a quick local round trip (the X
// server): the implementation keeps its state current from event sources on the main loop and
// from replies it asked for in advance, so that a tick never waits on a daemon. An absent
// answer means "cannot be observed here" and decides nothing.
class Session {
public:
    virtual ~Session() = default;

    // Calls `quand` on the main thread for each change until the handle is destroyed.
    [[nodiscard]] virtual std::unique_ptr<Abonnement>
    observer(std::function<void(EvenementSession)> quand) = 0;

    // The screen is locked (the lock screen shows, whoever is in front of it).
    virtual std::optional<bool> ecranVerrouille() const = 0;
    // The session is the one shown on this computer's own screen and keyboard, not a remote
    // one.
    virtual std::optional<bool> surConsole() const = 0;
    // Seconds since the last keyboard or pointer input of any kind.
    virtual std::optional<double> secondesInactivite() const = 0;
    // Some application holds the display awake (a video, a presentation).
    virtual std::optional<bool> veilleEcranRetenue() const = 0;

    // The current state behind the events, for diagnostics.
    virtual std::optional<bool> ecransEnVeille() const = 0;
    virtual std::optional<bool> sessionActive() const = 0;
    // "x11", "wayland", "tty" or "inconnu".
    virtual std::string typeSession() const = 0;
};

} // namespace tavi
