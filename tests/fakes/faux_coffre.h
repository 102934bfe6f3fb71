#pragma once

#include "barriere.h"
#include "platform/coffre.h"

#include <atomic>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace tavi::test {

// A secret store in memory, from any thread. While `suspendu` holds them, calls hang like a
// keyring daemon that does not answer; `verrouille` makes writes vanish silently, like a locked
// keyring. Counts the calls made on the thread that built it (the test's, the agent's main
// thread), which must never wait for a store.
class FauxCoffre : public Coffre {
public:
    mutable Barriere suspendu;
    std::atomic<bool> verrouille{false};

    int appelsDuFilPrincipal() const {
        std::lock_guard verrou(mutex);
        return surPrincipal;
    }

    std::optional<std::string> lire(const std::string& service,
                                    const std::string& compte) const override {
        auto verrou = entrer();
        auto it = secrets.find({service, compte});
        if (it == secrets.end()) return std::nullopt;
        return it->second;
    }
    void ecrire(const std::string& service, const std::string& compte,
                const std::string& secret) override {
        auto verrou = entrer();
        if (!verrouille) secrets[{service, compte}] = secret;
    }
    void supprimer(const std::string& service, const std::string& compte) override {
        auto verrou = entrer();
        secrets.erase({service, compte});
    }

private:
    std::unique_lock<std::mutex> entrer() const {
        {
            std::lock_guard verrou(mutex);
            surPrincipal += std::this_thread::get_id() == principal;
        }
        suspendu.passer();
        return std::unique_lock(mutex);
    }

    mutable std::mutex mutex;
    mutable int surPrincipal = 0;
    std::map<std::pair<std::string, std::string>, std::string> secrets;
    const std::thread::id principal = std::this_thread::get_id();
};

} // namespace tavi::test
