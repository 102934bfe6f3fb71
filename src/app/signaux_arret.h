#pragma once

#include "platform/abonnement.h"
#include "platform/boucle.h"

#include <functional>
#include <memory>

namespace tavi {

// SIGTERM and SIGINT taken as data on the main loop rather than as interruptions: the stop is
// then handled on the main thread like any other event, with the engine in a known state.
//
// Main thread only.
class SignauxArret {
public:
    // Blocks both signals in the calling thread, and so in every thread it starts afterwards:
    // call it first in `main`, before anything starts a thread, or a thread that left them
    // unblocked would take them and end the process at once.
    static void bloquer();

    // Calls `quand` on the main thread with each signal received. Should the descriptor not be
    // had, the signals are unblocked again in this thread and keep their default effect.
    SignauxArret(Boucle& boucle, std::function<void(int signal)> quand);
    ~SignauxArret();
    SignauxArret(const SignauxArret&) = delete;
    SignauxArret& operator=(const SignauxArret&) = delete;

private:
    void lire();

    int descripteur_ = -1;
    std::function<void(int)> quand_;
    std::unique_ptr<Abonnement> surveillance_;
};

} // namespace tavi
