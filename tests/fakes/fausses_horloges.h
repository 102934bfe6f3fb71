#pragma once

#include "platform/horloges.h"

#include <cstdint>

namespace tavi {

// Clocks a test sets and moves. The readings are independent: a test can set the wall clock
// back, reboot, put the computer to sleep, or let time pass on every clock at once.
class FaussesHorloges : public Horloges {
public:
    std::int64_t mono = 1'000'000;
    std::int64_t eveille = 900'000;
    std::int64_t murale = 1'795'000'000'000; // 2026-11-18
    std::int64_t identite = 4242;

    std::int64_t monotoniqueMs() const override { return mono; }
    std::int64_t monotoniqueEveilleMs() const override { return eveille; }
    std::int64_t muraleMs() const override { return murale; }
    std::int64_t demarrage() const override { return identite; }

    // Time passes on a computer that runs: every clock moves.
    void avancer(std::int64_t ms) {
        mono += ms;
        eveille += ms;
        murale += ms;
    }
    // The computer sleeps: the clock that stops during suspend does not move.
    void dormir(std::int64_t ms) {
        mono += ms;
        murale += ms;
    }

    // A reboot: a new identity and a monotonic clock that starts again; the wall clock goes on.
    void redemarrer(std::int64_t nouvelleIdentite, std::int64_t monoApres = 5'000) {
        identite = nouvelleIdentite;
        mono = monoApres;
        eveille = monoApres;
    }
};

} // namespace tavi
