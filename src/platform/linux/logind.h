#pragma once

#include "platform/abonnement.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

class BusSd;

// This user session as logind sees it, over the system bus, kept in memory: every answer is
// the last state logind gave, never a round trip.
//
// The session is the user's display session as logind elects it (User.Display), followed when
// logind elects another; nothing of this process's environment or of where it was started
// chooses it. Its properties are read once, then followed through PropertiesChanged. Until
// they arrive, and whenever logind, the bus or a display session is away, every answer is
// absent.
//
// Main thread only. The bus must outlive this object.
class Logind {
public:
    explicit Logind(BusSd& systeme);
    ~Logind();
    Logind(const Logind&) = delete;
    Logind& operator=(const Logind&) = delete;

    // LockedHint: the desktop says its lock screen shows.
    std::optional<bool> verrouille() const;
    // Active: this session has the seat's screen and keyboard.
    std::optional<bool> actif() const;
    // Remote: the session came in over the network (ssh, remote desktop).
    std::optional<bool> distant() const;
    // Seconds since the session went idle, while logind says it is: the idle hint only tells
    // "idle since", so a session in use, or one whose desktop never sets the hint, answers
    // absent, not 0.
    std::optional<double> secondesInactivite() const;
    // "x11", "wayland", "tty", "mir", "unspecified"... as logind says.
    std::optional<std::string> type() const;

    // The session's state arrived, or could not be had; answers may still be absent.
    bool pret() const;
    // Calls `quand` once, on the main thread, when `pret` becomes true (soon after this call
    // when it already is).
    void quandPret(std::function<void()> quand);

    // Calls `quand` with each new known value of `actif`, the first one included, until the
    // handle is destroyed. A value that becomes unknown calls nothing.
    [[nodiscard]] std::unique_ptr<Abonnement> observerActif(std::function<void(bool)> quand);
    // Calls `quand` after any change of the answers above, until the handle is destroyed.
    [[nodiscard]] std::unique_ptr<Abonnement> observer(std::function<void()> quand);

    struct Etat;

private:
    std::shared_ptr<Etat> etat;
    std::unique_ptr<Abonnement> suivi;
};

} // namespace tavi
