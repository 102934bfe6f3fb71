#pragma once

#include "platform/navigation.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavi::test {

// Browsers that answer what the test sets (`aucune` by default), from any thread. A browser
// of `bloques` hangs until `liberer`, like one stuck on a dialog; one of `enPanne` throws; one
// of `inconnus` is one this reader cannot read at all.
class FausseNavigation : public Navigation {
public:
    std::map<std::string, Lecture> reponses;
    std::set<std::string> bloques;
    std::set<std::string> enPanne;
    std::set<std::string> inconnus;

    bool sait(const std::string& identifiant) const override {
        return !inconnus.count(identifiant);
    }

    Lecture lire(const std::string& identifiant) override {
        std::unique_lock verrou(mutex);
        appels.push_back("lire " + identifiant);
        change.notify_all();
        // Not forever: a failing test must still end.
        if (bloques.count(identifiant))
            change.wait_for(verrou, std::chrono::seconds(10), [&] { return libere; });
        if (enPanne.count(identifiant)) throw std::runtime_error("panne");
        auto it = reponses.find(identifiant);
        return it == reponses.end() ? Lecture::aucune() : it->second;
    }
    void vider(const std::string& identifiant) override {
        std::lock_guard verrou(mutex);
        appels.push_back("vider " + identifiant);
        change.notify_all();
    }

    void liberer() {
        std::lock_guard verrou(mutex);
        libere = true;
        change.notify_all();
    }
    // Waits (real time, at most 5 s) until `n` calls have been made; returns them all.
    std::vector<std::string> attendreAppels(std::size_t n) {
        std::unique_lock verrou(mutex);
        change.wait_for(verrou, std::chrono::seconds(5), [&] { return appels.size() >= n; });
        return appels;
    }

private:
    std::mutex mutex;
    std::condition_variable change;
    std::vector<std::string> appels;
    bool libere = false;
};

} // namespace tavi::test
