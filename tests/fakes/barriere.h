#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace tavi::test {

// Where a fake's callers wait while the test holds them, like a keyring daemon or a server that
// does not answer. Any thread. Bounded, and given up for good once it runs out: a failing test
// must still end.
class Barriere {
public:
    void retenir() {
        std::lock_guard verrou(mutex);
        ferme = true;
    }
    void relacher() {
        std::lock_guard verrou(mutex);
        ferme = false;
        change.notify_all();
    }
    // Callers held now; none from the moment they are let go.
    std::size_t retenus() const {
        std::lock_guard verrou(mutex);
        return ferme ? enAttente : 0;
    }
    void passer() {
        std::unique_lock verrou(mutex);
        ++enAttente;
        if (!change.wait_for(verrou, std::chrono::seconds(5), [&] { return !ferme; }))
            ferme = false;
        --enAttente;
    }

private:
    mutable std::mutex mutex;
    std::condition_variable change;
    bool ferme = false;
    std::size_t enAttente = 0;
};

} // namespace tavi::test
