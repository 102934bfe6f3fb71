#pragma once

#include "fausse_boucle.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace tavi::test {

// The virtual-time loop for code that posts from its own threads: `poster` is safe from any
// thread, and what was posted enters the loop when the test moves it with `avancer`. The rest
// runs on the test's thread, as in `FausseBoucle`.
class FausseBoucleFilee : public Boucle {
public:
    std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds periode, Tache tache) override {
        return interne.repeter(periode, std::move(tache));
    }
    void plusTard(std::chrono::milliseconds delai, Tache tache) override {
        interne.plusTard(delai, std::move(tache));
    }
    std::unique_ptr<Abonnement> surveiller(int descripteur, Tache tache) override {
        return interne.surveiller(descripteur, std::move(tache));
    }
    void enArrierePlan(std::function<Tache()> travail) override {
        interne.enArrierePlan(std::move(travail));
    }
    void poster(Tache tache) override {
        std::lock_guard verrou(mutex);
        arrivees.push_back(std::move(tache));
        ++postes;
        change.notify_all();
    }

    // Waits (real time, at most 5 s) until `n` tasks in all have been posted.
    void attendrePostes(std::size_t n) {
        std::unique_lock verrou(mutex);
        change.wait_for(verrou, std::chrono::seconds(5), [&] { return postes >= n; });
    }
    // Runs what was posted so far, then moves virtual time as `FausseBoucle::avancer`.
    void avancer(std::chrono::milliseconds duree) {
        std::deque<Tache> lot;
        {
            std::lock_guard verrou(mutex);
            lot.swap(arrivees);
        }
        for (auto& tache : lot)
            interne.poster(std::move(tache));
        interne.avancer(duree);
    }

private:
    FausseBoucle interne;
    std::mutex mutex;
    std::condition_variable change;
    std::deque<Tache> arrivees;
    std::size_t postes = 0;
};

} // namespace tavi::test
