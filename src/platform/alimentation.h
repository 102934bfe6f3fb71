#pragma once

#include <functional>

namespace tavi {

// The computer's coming sleeps and power-offs, each announced with a short delay in which the
// agent may still tell the server, and its wakes.
//
// Main thread only: the callbacks are called on the main thread. Set them before the loop
// runs; an empty one is not called.
class Alimentation {
public:
    // Lets the sleep or the power-off go on. Only its first call counts. The system does not
    // wait for ever: it goes on by itself after its own bound (5 s by default on Linux).
    using Accord = std::function<void()>;

    virtual ~Alimentation() = default;

    // The computer is about to sleep.
    std::function<void(Accord)> avantVeille;
    // It woke (or the sleep did not happen).
    std::function<void()> auReveil;
    // It is about to power off or restart.
    std::function<void(Accord)> avantArret;
};

} // namespace tavi
