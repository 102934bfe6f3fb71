#pragma once

#include "gardien/regards.h"
#include "gardien/sonde_x_garde.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace tavi {

// One watched display: a worker thread that keeps a connection to its X server, takes a look
// about once a second, keeps the notice up, and connects again with a growing pause after an
// error. The main thread only exchanges values with it under the lock.
class EcranX {
public:
    EcranX(const AccesX& acces, pid_t agent);
    // Stops the worker and waits for it: the socket is shut down first, so no X server holds it.
    ~EcranX();
    EcranX(const EcranX&) = delete;
    EcranX& operator=(const EcranX&) = delete;

    std::optional<RegardX> regarder(const AccesX& acces, pid_t agent);
    void avis(std::optional<std::string> texte);
    // The watchdog's round, from its own thread.
    void surveiller(std::int64_t maintenantMs) {
        surveillance.surveiller(maintenantMs, attenteMaxMs);
    }

private:
    void tourner();
    void publier(const RegardX& regard, pid_t agent);
    bool attendre(std::int64_t ms); // false once stopped

    GardeX surveillance;
    std::mutex verrou;
    std::condition_variable reveil;
    bool fini = false;
    AccesX acces;
    pid_t agent = 0;
    std::optional<std::string> texteAvis;
    std::optional<RegardX> dernier;
    std::int64_t priseMs = 0;
    pid_t agentDuRegard = 0;
    std::thread fil;
};

} // namespace tavi
