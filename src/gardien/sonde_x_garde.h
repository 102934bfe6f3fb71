#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace tavi {

// How long a worker may wait on its X server before the watchdog frees it.
constexpr std::int64_t attenteMaxMs = 3000;

// What lets another thread free a worker stuck on its X server: the worker's socket (a copy of
// its descriptor, so that it is never another file's once XCB has closed its own) and since
// when the worker waits on it. Shutting the socket down makes every XCB call on it return.
class GardeX {
public:
    GardeX() = default;
    ~GardeX() { lacher(); }
    GardeX(const GardeX&) = delete;
    GardeX& operator=(const GardeX&) = delete;

    // Watches `fd` from now on; false (nothing watched) once stopped.
    bool prendre(int fd);
    void lacher();

    void debut(std::int64_t maintenantMs) { depuisMs.store(maintenantMs); }
    void fin() { depuisMs.store(0); }
    // Shuts the socket down when the worker has waited on it more than `limiteMs`.
    void surveiller(std::int64_t maintenantMs, std::int64_t limiteMs);

    // Shuts the socket down for good: the worker leaves at its next step.
    void arreter();
    bool arrete();

private:
    std::mutex verrou;
    int copie = -1;
    bool fini = false;
    std::atomic<std::int64_t> depuisMs{0};
};

std::int64_t monotoneMs();

} // namespace tavi
