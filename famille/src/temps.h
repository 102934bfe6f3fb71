#pragma once

#include <cstdint>
#include <string>

namespace date {
class time_zone;
}

namespace tavi::famille {

// The server's own clock: the system's wall clock in ms since the epoch. Every operation of
// the store takes its instant as an argument, so only the entry points read this.
std::int64_t maintenantMs();

// The IANA zone of that name from the system's tzdata, or null when there is none.
const date::time_zone* trouverFuseau(const std::string& nom);

// The server's own zone, for a child created without one; "UTC" when the system names none.
std::string fuseauDuServeur();

// The day key "yyyy-MM-dd" of an instant in a zone: per-day figures are keyed by the child's
// local day, as the agent keys them by its own.
std::string jourLocal(std::int64_t instantMs, const date::time_zone& zone);

// The day keys a per-day figure may carry at `instantMs`, whatever the zone: from the oldest
// day kept (`conservationMs` back, a day of margin for the zones ahead of UTC) to the day after
// today in UTC, which is the latest "today" of any zone. Keys sort as text.
struct BornesJours {
    std::string premier;
    std::string dernier;
};
BornesJours bornesJours(std::int64_t instantMs, std::int64_t conservationMs);

// The first instant of the local day that holds `instantMs` (where midnight is skipped by a
// daylight-saving jump, the jump itself).
std::int64_t debutJourMs(std::int64_t instantMs, const date::time_zone& zone);

} // namespace tavi::famille
