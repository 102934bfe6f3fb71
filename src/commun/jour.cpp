#include "commun/jour.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace tavi {

namespace {

// Every time zone's calendar holds these seconds, and their days' starts and ends fit in 64-bit
// milliseconds with room to spare.
constexpr std::int64_t premiereSeconde = premierInstantCalendrierMs / 1000;
constexpr std::int64_t derniereSeconde = dernierInstantCalendrierMs / 1000;
constexpr std::int64_t msParJour = 86'400'000;

std::int64_t secondeBornee(std::int64_t instantMs) {
    // Floor division: an instant before the epoch belongs to the second that starts before it.
    const std::int64_t secondes = instantMs / 1000 - (instantMs % 1000 < 0 ? 1 : 0);
    return std::clamp(secondes, premiereSeconde, derniereSeconde);
}

// False only where the C library cannot place the second, which the bounds above rule out on
// the systems we know; the callers then fall back on the UTC day.
bool tmLocal(std::int64_t seconde, std::tm& local) {
    const auto t = static_cast<std::time_t>(seconde);
    return localtime_r(&t, &local) != nullptr;
}

std::int64_t debutJourUtcMs(std::int64_t seconde) {
    const std::int64_t ms = seconde * 1000;
    return ms - ((ms % msParJour) + msParJour) % msParJour;
}

} // namespace

std::int64_t debutJourLocalMs(std::int64_t instantMs) {
    const std::int64_t seconde = secondeBornee(instantMs);
    std::tm minuit{};
    if (!tmLocal(seconde, minuit)) return debutJourUtcMs(seconde);
    minuit.tm_hour = 0;
    minuit.tm_min = 0;
    minuit.tm_sec = 0;
    minuit.tm_isdst = -1;
    std::time_t t = std::mktime(&minuit);
    if (t == static_cast<std::time_t>(-1)) return debutJourUtcMs(seconde);
    // Where midnight is skipped, mktime moves forward into the day; where it happens twice, it
    // may pick the later one: step back an hour while that is still the same day.
    std::tm verif{};
    const std::time_t avant = t - 3600;
    if (localtime_r(&avant, &verif) && verif.tm_mday == minuit.tm_mday &&
        verif.tm_mon == minuit.tm_mon && verif.tm_hour == 0 && verif.tm_min == 0)
        t = avant;
    return static_cast<std::int64_t>(t) * 1000;
}

std::string jourLocal(std::int64_t instantMs) {
    const std::int64_t seconde = secondeBornee(instantMs);
    std::tm local{};
    if (!tmLocal(seconde, local)) {
        const auto t = static_cast<std::time_t>(seconde);
        gmtime_r(&t, &local);
    }
    char texte[48];
    std::snprintf(texte, sizeof texte, "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday);
    return texte;
}

} // namespace tavi
