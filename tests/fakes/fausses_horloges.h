#pragma once

#include "platform/horloges.h"

#include <cstdint>

namespace tavi {

// Clocks a test sets and moves. The three readings are independent: a test can set the wall
// clock back, reboot, or let time pass on both clocks at once.
class FaussesHorloges : public Horloges {
public:
    std::int64_t mono = 1'000'000;
    std::int64_t murale = 1'795'000'000'000; // 2026-11-18
    std::int64_t identite = 4242;

    std::int64_t monotoniqueMs() const override { return mono; }
    std::int64_t muraleMs() const override { return murale; }
    std::int64_t demarrage() const override { return identite; }

    // Time passes on a computer nobody touches: both clocks move together.
    void avancer(std::int64_t ms) {
        mono += ms;
        murale += ms;
    }

    // A reboot: a new identity and a monotonic clock that starts again; the wall clock goes on.
    void redemarrer(std::int64_t nouvelleIdentite, std::int64_t monoApres = 5'000) {
        identite = nouvelleIdentite;
        mono = monoApres;
    }
};

} // namespace tavi
