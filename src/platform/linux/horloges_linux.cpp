#include "platform/linux/horloges_linux.h"

#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

namespace tavi {

namespace {

std::int64_t lireMs(clockid_t horloge) {
    timespec t{};
    clock_gettime(horloge, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1'000'000;
}

int chiffre(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

HorlogesLinux::HorlogesLinux() {
    std::ifstream fichier("/proc/sys/kernel/random/boot_id");
    const std::string texte{std::istreambuf_iterator<char>(fichier), {}};
    identite = fichier.is_open() ? identiteDemarrage(texte) : -1;
}

std::int64_t HorlogesLinux::monotoniqueMs() const {
    return lireMs(CLOCK_BOOTTIME);
}

std::int64_t HorlogesLinux::monotoniqueEveilleMs() const {
    return lireMs(CLOCK_MONOTONIC);
}

std::int64_t HorlogesLinux::muraleMs() const {
    return lireMs(CLOCK_REALTIME);
}

std::int64_t identiteDemarrage(std::string_view bootId) {
    if (bootId.ends_with('\n')) bootId.remove_suffix(1);
    constexpr std::string_view forme = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    if (bootId.size() != forme.size()) return -1;

    std::uint64_t moities[2] = {0, 0};
    int rang = 0;
    for (std::size_t i = 0; i < forme.size(); ++i) {
        if (forme[i] == '-') {
            if (bootId[i] != '-') return -1;
            continue;
        }
        const int valeur = chiffre(bootId[i]);
        if (valeur < 0) return -1;
        auto& moitie = moities[rang / 16];
        moitie = (moitie << 4) | static_cast<std::uint64_t>(valeur);
        ++rang;
    }
    // Every digit counts: the top eleven bits are folded onto the low ones, not dropped.
    std::uint64_t pli = moities[0] ^ moities[1];
    pli ^= pli >> 53;
    constexpr std::uint64_t masque53 = (std::uint64_t{1} << 53) - 1;
    return static_cast<std::int64_t>(pli & masque53);
}

} // namespace tavi
