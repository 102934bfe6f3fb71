#include "gardien/sonde_x_garde.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace tavi {

bool GardeX::prendre(int fd) {
    std::lock_guard garde(verrou);
    if (fini) return false;
    if (copie >= 0) close(copie);
    copie = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    return copie >= 0;
}

void GardeX::lacher() {
    std::lock_guard garde(verrou);
    if (copie >= 0) close(copie);
    copie = -1;
}

void GardeX::surveiller(std::int64_t maintenantMs, std::int64_t limiteMs) {
    const std::int64_t depuis = depuisMs.load();
    if (depuis == 0 || maintenantMs - depuis <= limiteMs) return;
    std::lock_guard garde(verrou);
    if (copie >= 0) shutdown(copie, SHUT_RDWR);
}

void GardeX::arreter() {
    std::lock_guard garde(verrou);
    fini = true;
    if (copie >= 0) shutdown(copie, SHUT_RDWR);
}

bool GardeX::arrete() {
    std::lock_guard garde(verrou);
    return fini;
}

std::int64_t monotoneMs() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

} // namespace tavi
