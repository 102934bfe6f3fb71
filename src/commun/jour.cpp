#include "commun/jour.h"

#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace tavi {

namespace {

std::tm tmLocal(std::int64_t instantMs) {
    // Floor division: an instant before the epoch belongs to the second that starts before it.
    std::int64_t secondes = instantMs / 1000 - (instantMs % 1000 < 0 ? 1 : 0);
    std::time_t t = static_cast<std::time_t>(secondes);
    std::tm local{};
    if (!localtime_r(&t, &local)) throw std::range_error("instant hors du calendrier");
    return local;
}

} // namespace

std::int64_t debutJourLocalMs(std::int64_t instantMs) {
    std::tm minuit = tmLocal(instantMs);
    minuit.tm_hour = 0;
    minuit.tm_min = 0;
    minuit.tm_sec = 0;
    minuit.tm_isdst = -1;
    std::time_t t = std::mktime(&minuit);
    if (t == static_cast<std::time_t>(-1)) throw std::range_error("début de jour introuvable");
    // Where midnight is skipped, mktime moves forward into the day; where it happens twice, it
    // may pick the later one: step back an hour while that is still the same day.
    std::tm verif{};
    std::time_t avant = t - 3600;
    if (localtime_r(&avant, &verif) && verif.tm_mday == minuit.tm_mday &&
        verif.tm_mon == minuit.tm_mon && verif.tm_hour == 0 && verif.tm_min == 0)
        t = avant;
    std::int64_t ms;
    if (__builtin_mul_overflow(static_cast<std::int64_t>(t), 1000, &ms))
        throw std::range_error("début de jour hors des millisecondes sur 64 bits");
    return ms;
}

std::string jourLocal(std::int64_t instantMs) {
    std::tm local = tmLocal(instantMs);
    char texte[48];
    std::snprintf(texte, sizeof texte, "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday);
    return texte;
}

} // namespace tavi
