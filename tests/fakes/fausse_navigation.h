#pragma once

#include "barriere.h"
#include "platform/navigation.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tavi::test {

// Browsers that answer what the test sets (`aucune` by default), from any thread. A browser
// of `bloques` hangs while `bloque` holds it, like one stuck on a dialog; one of `enPanne`
// throws; one of `inconnus` is one this reader cannot read at all.
class FausseNavigation : public Navigation {
public:
    std::map<std::string, Lecture> reponses;
    std::set<std::string> bloques;
    std::set<std::string> enPanne;
    std::set<std::string> inconnus;
    Barriere bloque;

    bool sait(const std::string& identifiant) const override {
        return !inconnus.count(identifiant);
    }

    Lecture lire(const std::string& identifiant) override {
        noter("lire " + identifiant);
        if (bloques.count(identifiant)) bloque.passer();
        if (enPanne.count(identifiant)) throw std::runtime_error("panne");
        auto it = reponses.find(identifiant);
        return it == reponses.end() ? Lecture::aucune() : it->second;
    }
    void vider(const std::string& identifiant) override { noter("vider " + identifiant); }

    // Waits (real time, at most 5 s) until `n` calls have been made; returns them all.
    std::vector<std::string> attendreAppels(std::size_t n) {
        std::unique_lock verrou(mutex);
        change.wait_for(verrou, std::chrono::seconds(5), [&] { return appels.size() >= n; });
        return appels;
    }

private:
    void noter(std::string appel) {
        std::lock_guard verrou(mutex);
        appels.push_back(std::move(appel));
        change.notify_all();
    }

    std::mutex mutex;
    std::condition_variable change;
    std::vector<std::string> appels;
};

} // namespace tavi::test
