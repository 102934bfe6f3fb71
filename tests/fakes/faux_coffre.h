#pragma once

#include "platform/coffre.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace tavi::test {

// A secret store in memory, from any thread. `suspendre` makes every call hang until
// `liberer`, like a keyring daemon that does not answer; `verrouiller` makes writes vanish
// silently, like a locked keyring. Counts the calls made on the thread that built it (the
// test's, the agent's main thread), which must never wait for a store.
class FauxCoffre : public Coffre {
public:
    void suspendre() {
        std::lock_guard verrou(mutex);
        suspendu = true;
    }
    void liberer() {
        std::lock_guard verrou(mutex);
        suspendu = false;
        change.notify_all();
    }
    void verrouiller(bool oui) {
        std::lock_guard verrou(mutex);
        verrouille = oui;
    }
    // Calls hanging now; none from the moment they are let go.
    std::size_t suspendus() const {
        std::lock_guard verrou(mutex);
        return suspendu ? enAttente : 0;
    }
    int appelsDuFilPrincipal() const {
        std::lock_guard verrou(mutex);
        return surPrincipal;
    }

    std::optional<std::string> lire(const std::string& service,
                                    const std::string& compte) const override {
        std::unique_lock verrou = entrer();
        auto it = secrets.find({service, compte});
        if (it == secrets.end()) return std::nullopt;
        return it->second;
    }
    void ecrire(const std::string& service, const std::string& compte,
                const std::string& secret) override {
        std::unique_lock verrou = entrer();
        if (!verrouille) secrets[{service, compte}] = secret;
    }
    void supprimer(const std::string& service, const std::string& compte) override {
        std::unique_lock verrou = entrer();
        secrets.erase({service, compte});
    }

private:
    std::unique_lock<std::mutex> entrer() const {
        std::unique_lock verrou(mutex);
        surPrincipal += std::this_thread::get_id() == principal;
        ++enAttente;
        // Bounded, and given up for good once it runs out: a failing test must still end.
        if (!change.wait_for(verrou, std::chrono::seconds(3), [&] { return !suspendu; }))
            suspendu = false;
        --enAttente;
        return verrou;
    }

    mutable std::mutex mutex;
    mutable std::condition_variable change;
    mutable bool suspendu = false;
    mutable std::size_t enAttente = 0;
    mutable int surPrincipal = 0;
    bool verrouille = false;
    std::map<std::pair<std::string, std::string>, std::string> secrets;
    const std::thread::id principal = std::this_thread::get_id();
};

} // namespace tavi::test
