#pragma once

#include "platform/boucle.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace tavi::test {

// A main loop in virtual time, for tests that run hours of ticks in milliseconds. Nothing
// happens by itself: `avancer` moves the clock and runs what falls due, in time order, on the
// test's thread; `poster` is safe from any thread. Background work starts at once on a thread
// of its own, so that one that hangs (a secret store, a server) holds its own thread only, as
// in the agent; what it gives back waits for `terminerArrierePlan` or `attendre`, so the test
// decides when it lands.
class FausseBoucle : public Boucle {
public:
    // Called with the milliseconds that pass each time the virtual clock moves, so that fake
    // clocks can keep in step with the loop.
    std::function<void(std::int64_t)> quandLeTempsPasse;
    // How many works the test's fakes hold on purpose right now: they are not waited for.
    std::function<std::size_t()> retenus = [] { return std::size_t{0}; };

    FausseBoucle() = default;
    FausseBoucle(const FausseBoucle&) = delete;
    FausseBoucle& operator=(const FausseBoucle&) = delete;
    // Waits for every work still running: release what the fakes hold before.
    ~FausseBoucle() override;

    // A period under 1 ms is refused (std::invalid_argument), as by the real loop.
    [[nodiscard]] std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds periode,
                                                     Tache tache) override;
    // No delay is a post.
    void plusTard(std::chrono::milliseconds delai, Tache tache) override;
    void poster(Tache tache) override;
    // Nothing is read here: a watched descriptor never wakes.
    [[nodiscard]] std::unique_ptr<Abonnement> surveiller(int, Tache) override {
        return std::make_unique<Abonnement>();
    }
    // Work that throws has its `echec` called on the test's thread, as in the agent.
    void enArrierePlan(std::function<Tache()> travail,
                       std::function<void(const std::string&)> echec) override;

    // Runs what was posted, then every timer and delayed task due within `duree`, each at its
    // own instant (ties in the order they were scheduled) and followed by what it posted. The
    // clock ends `duree` later.
    void avancer(std::chrono::milliseconds duree);
    // Waits (real time, at most 5 s each round) until every work but those held has ended, runs
    // what they gave back and what was posted, and again for the works those started, until
    // nothing is left. Returns how many works landed; throws when one does not end in time.
    std::size_t terminerArrierePlan();
    // Runs what comes back until `condition` holds; false after 5 s (real time) without it.
    bool attendre(const std::function<bool()>& condition);

private:
    struct Echeance {
        Tache tache;
        std::int64_t periodeMs = 0;   // 0: once
        std::shared_ptr<bool> active; // null: a delayed task, never cancelled
    };

    void planifier(std::int64_t dueMs, Echeance echeance);
    void executerPostes();
    // What waits in `file`, taken under the lock; nothing when it is empty.
    std::optional<std::deque<Tache>> prendre(std::deque<Tache>& file);

    // Test's thread only: the clock, the timers, the threads.
    std::int64_t maintenant = 0;
    std::uint64_t rang = 0;
    std::map<std::pair<std::int64_t, std::uint64_t>, Echeance> echeancier; // by (due, rank)
    std::vector<std::thread> fils;

    std::mutex mutex;
    std::condition_variable change;
    std::deque<Tache> postes;
    std::deque<Tache> retours; // what the works gave back
    std::size_t enCours = 0;
};

} // namespace tavi::test
