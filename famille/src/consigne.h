#pragma once

#include "enfant.h"

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

namespace date {
class time_zone;
}

namespace tavi::famille {

// Today's figures of one child, on the child's local day, as the store sums them.
struct UsageDuJour {
    double utiliseMin = 0; // latest figure of each of the child's computers, summed
    double ajoutesMin = 0; // minutes granted today plus minutes spent from the piggy bank today
    // Per application, the minutes of the child's computers other than the one asking.
    std::map<std::string, double> autresParAppli;
    bool operator==(const UsageDuJour&) const = default;
};

// How far ahead the schedule is sent as concrete ranges: a computer that stays offline keeps
// following its last rule set for up to this long.
inline constexpr std::int64_t horizonProgrammeMs = 48LL * 3600 * 1000;

// The rule set a heartbeat answers at `maintenantMs`: a pure function of its arguments.
nlohmann::json consigne(const Enfant& enfant, const UsageDuJour& usage, std::int64_t maintenantMs,
                        const date::time_zone& zone);

} // namespace tavi::famille
