#pragma once

#include "fausse_boucle.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tavi::test {

// The virtual-time loop with a real background pool: each piece of background work starts at
// once on a thread of its own, so that one that hangs (a secret store, a server) holds its own
// thread only, as in the agent, and never the test's. What the work gives back waits for
// `terminerArrierePlan`, so the test still decides when it lands; what other threads post
// enters the loop at the next `avancer`. Timers run on the test's thread, as in `FausseBoucle`.
class FausseBouclePool : public Boucle {
public:
    // How many works the test's fakes hold on purpose right now: they are not waited for.
    std::function<std::size_t()> retenus = [] { return std::size_t{0}; };

    FausseBouclePool() = default;
    FausseBouclePool(const FausseBouclePool&) = delete;
    FausseBouclePool& operator=(const FausseBouclePool&) = delete;
    // Waits for every work still running: release what the fakes hold before.
    ~FausseBouclePool() override {
        for (auto& fil : fils)
            fil.join();
    }

    void quandLeTempsPasse(std::function<void(std::int64_t)> quand) {
        interne.quandLeTempsPasse = std::move(quand);
    }

    std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds periode, Tache tache) override {
        return interne.repeter(periode, std::move(tache));
    }
    void plusTard(std::chrono::milliseconds delai, Tache tache) override {
        interne.plusTard(delai, std::move(tache));
    }
    std::unique_ptr<Abonnement> surveiller(int descripteur, Tache tache) override {
        return interne.surveiller(descripteur, std::move(tache));
    }
    void poster(Tache tache) override {
        std::lock_guard verrou(mutex);
        arrivees.push_back(std::move(tache));
        change.notify_all();
    }
    void enArrierePlan(std::function<Tache()> travail) override {
        auto partage = std::make_shared<std::function<Tache()>>(std::move(travail));
        {
            std::lock_guard verrou(mutex);
            ++enCours;
        }
        fils.emplace_back([this, partage]() mutable {
            auto mien = std::move(partage);
            Tache suite;
            std::exception_ptr erreur;
            try {
                suite = (*mien)();
            } catch (...) {
                erreur = std::current_exception();
            }
            std::lock_guard verrou(mutex);
            // Moved into the loop: both are released on the test's thread.
            retours.push_back([mien = std::move(mien), suite = std::move(suite), erreur] {
                if (erreur) std::rethrow_exception(erreur);
                if (suite) suite();
            });
            --enCours;
            change.notify_all();
        });
    }

    // Runs what other threads posted, then moves virtual time as `FausseBoucle::avancer`.
    void avancer(std::chrono::milliseconds duree) {
        for (auto& tache : prendre(false))
            interne.poster(std::move(tache));
        interne.avancer(duree);
    }

    // Waits (real time, at most 5 s each round) until every work but those held has ended, runs
    // what they gave back and what was posted, and again for the work that started, until
    // nothing is left. Throws when a work does not end in time.
    void terminerArrierePlan() {
        for (;;) {
            interne.avancer(std::chrono::milliseconds(0));
            {
                // Polled: a fake that starts holding a work does not wake this loop.
                const auto limite = std::chrono::steady_clock::now() + std::chrono::seconds(5);
                std::unique_lock verrou(mutex);
                while (enCours > retenus()) {
                    if (std::chrono::steady_clock::now() > limite)
                        throw std::runtime_error("terminerArrierePlan: background work still runs");
                    change.wait_for(verrou, std::chrono::milliseconds(1));
                }
            }
            auto lot = prendre(true);
            if (lot.empty()) return joindre();
            for (auto& tache : lot)
                tache();
        }
    }

    // Runs what comes back until `condition` holds; false after 5 s (real time) without it.
    bool attendre(const std::function<bool()>& condition) {
        const auto limite = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (;;) {
            for (auto& tache : prendre(true))
                tache();
            interne.avancer(std::chrono::milliseconds(0));
            if (condition()) return true;
            std::unique_lock verrou(mutex);
            if (!change.wait_until(verrou, limite,
                                   [&] { return !arrivees.empty() || !retours.empty(); }))
                return condition();
        }
    }

private:
    std::deque<Tache> prendre(bool avecRetours) {
        std::lock_guard verrou(mutex);
        std::deque<Tache> lot;
        if (avecRetours) lot.swap(retours);
        for (auto& tache : arrivees)
            lot.push_back(std::move(tache));
        arrivees.clear();
        return lot;
    }
    // Nothing runs: the threads have ended or are about to.
    void joindre() {
        std::lock_guard verrou(mutex);
        if (enCours > 0) return;
        for (auto& fil : fils)
            fil.join();
        fils.clear();
    }

    FausseBoucle interne;
    std::vector<std::thread> fils; // test's thread only
    std::mutex mutex;
    std::condition_variable change;
    std::size_t enCours = 0;
    std::deque<Tache> retours;
    std::deque<Tache> arrivees;
};

} // namespace tavi::test
