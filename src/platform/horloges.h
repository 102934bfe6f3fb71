#pragma once

#include <cstdint>

namespace tavi {

// The clocks the agent reads. Production reads the system; tests hand in clocks they move.
// Any thread: the readings keep no state that a call changes.
class Horloges {
public:
    virtual ~Horloges() = default;

    // Milliseconds on a clock that never goes back and keeps counting while the computer
    // sleeps: the server time derived from it must not fall behind after a suspend.
    virtual std::int64_t monotoniqueMs() const = 0;

    // Milliseconds on a clock that never goes back and stops while the computer sleeps. Beside
    // the one above it tells a sleep (only that one moved) from a process that was stopped or
    // stalled while the computer ran (both moved).
    virtual std::int64_t monotoniqueEveilleMs() const = 0;

    // Wall clock, ms since 1970-01-01 UTC. The child can set it, so rules are never
    // evaluated against it when a server sample is available.
    virtual std::int64_t muraleMs() const = 0;

    // Identity of the current boot: the same value for as long as the machine runs, whatever
    // happens to the wall clock, and within 53 bits so that a double holds it exactly.
    // -1 when it cannot be read.
    virtual std::int64_t demarrage() const = 0;
};

} // namespace tavi
