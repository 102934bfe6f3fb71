#pragma once

#include "platform/boucle.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace tavi {

// A main loop in virtual time, for tests that run hours of ticks in milliseconds. Nothing
// happens by itself: `avancer` moves the clock and runs what falls due, in time order;
// background work waits until the test runs it with `terminerArrierePlan`, so a test decides
// what is "in flight" and when it lands. Single-threaded: the engine posts from the main
// thread only, and continuations here run on the test's thread.
class FausseBoucle : public Boucle {
public:
    // Called with the milliseconds that pass each time the virtual clock moves, so that fake
    // clocks can keep in step with the loop.
    std::function<void(std::int64_t)> quandLeTempsPasse;

    // A period under 1 ms is refused (std::invalid_argument), as by the real loop.
    [[nodiscard]] std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds periode,
                                                     Tache tache) override;
    // No delay is a post.
    void plusTard(std::chrono::milliseconds delai, Tache tache) override;
    void poster(Tache tache) override;
    // Nothing is read: `signaler` runs what watches a descriptor, as if data had come.
    [[nodiscard]] std::unique_ptr<Abonnement> surveiller(int descripteur, Tache tache) override;
    void signaler(int descripteur);
    void enArrierePlan(std::function<Tache()> travail) override;

    // Runs the posted tasks, then every timer and delayed task due within `duree`, each at its
    // own instant (ties in the order they were scheduled), including those scheduled on the
    // way. The clock ends `duree` later.
    void avancer(std::chrono::milliseconds duree);
    // Runs the waiting background work in the order it was started, each followed by the
    // posted tasks (its continuation among them), until none waits, work started by the
    // continuations included. Returns how many ran. An exception from the work reaches the
    // test.
    std::size_t terminerArrierePlan();

private:
    struct Echeance {
        Tache tache;
        std::int64_t periodeMs = 0;   // 0: once
        std::shared_ptr<bool> active; // null: a delayed task, never cancelled
    };

    void executerPostes();
    void planifier(std::int64_t dueMs, Echeance echeance);
    void allerA(std::int64_t instantMs);

    std::int64_t maintenant = 0;
    std::uint64_t rang = 0;
    // By (instant due, order of scheduling).
    std::map<std::pair<std::int64_t, std::uint64_t>, Echeance> echeancier;
    std::deque<std::function<Tache()>> arrierePlan;
    std::deque<Tache> postes;
    std::multimap<int, std::pair<std::shared_ptr<bool>, Tache>> surveillances;
};

} // namespace tavi
