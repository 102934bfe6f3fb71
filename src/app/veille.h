#pragma once

#include "engine/moteur.h"
#include "platform/alimentation.h"
#include "platform/boucle.h"

#include <chrono>

namespace tavi {

// Before the computer sleeps, the server learns that the agent goes quiet on purpose: a last
// heartbeat with the reason "veille", then the sleep may go on. The agent never holds a sleep
// for long: it goes on as soon as the announcement is answered or fails, and at the latest
// `limite` after it was announced. After a wake the next tick beats at once.
//
// Main thread only. Engine, power events and loop outlive the watcher, which sets the power
// events' `avantVeille` and `auReveil`.
class Veille {
public:
    static constexpr std::chrono::seconds limite{5};

    Veille(Moteur& moteur, Alimentation& alimentation, Boucle& boucle);
    ~Veille();
    Veille(const Veille&) = delete;
    Veille& operator=(const Veille&) = delete;

private:
    Alimentation& alimentation_;
};

// Calls `accord` once: at the first of `fini` (what `demarrer` is handed) and `limite`. So a
// stop or a sleep waits for the server no longer than its bound.
void accorderApres(Boucle& boucle, std::chrono::milliseconds limite, Alimentation::Accord accord,
                   const std::function<void(std::function<void()> fini)>& demarrer);

} // namespace tavi
