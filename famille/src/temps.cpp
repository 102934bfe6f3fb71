#include "temps.h"

#include <chrono>
#include <cstdio>
#include <date/tz.h>

namespace tavi::famille {

std::int64_t maintenantMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

const date::time_zone* trouverFuseau(const std::string& nom) {
    try {
        return date::locate_zone(nom);
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::string fuseauDuServeur() {
    try {
        return date::current_zone()->name();
    } catch (const std::exception&) {
        return "UTC";
    }
}

std::string jourLocal(std::int64_t instantMs, const date::time_zone& zone) {
    auto local = zone.to_local(
        date::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(instantMs)));
    date::year_month_day jour{date::floor<date::days>(local)};
    char texte[16];
    std::snprintf(texte, sizeof texte, "%04d-%02u-%02u", static_cast<int>(jour.year()),
                  static_cast<unsigned>(jour.month()), static_cast<unsigned>(jour.day()));
    return texte;
}

BornesJours bornesJours(std::int64_t instantMs, std::int64_t conservationMs) {
    constexpr std::int64_t jourMs = 24 * 3600 * 1000;
    const auto& utc = *date::locate_zone("UTC");
    return {jourLocal(instantMs - conservationMs - jourMs, utc),
            jourLocal(instantMs + jourMs, utc)};
}

std::int64_t debutJourMs(std::int64_t instantMs, const date::time_zone& zone) {
    using namespace std::chrono;
    auto local = zone.to_local(date::sys_time<milliseconds>(milliseconds(instantMs)));
    auto minuit = date::local_time<milliseconds>(date::floor<date::days>(local).time_since_epoch());
    return zone.to_sys(minuit, date::choose::earliest).time_since_epoch().count();
}

} // namespace tavi::famille
