#pragma once

#include <cstdint>
#include <string>

namespace tavi {

// The local day follows the system time zone, Gregorian calendar. Both functions are total: an
// instant outside years 1 to 9999 (UTC) is taken as the nearest end of that range, so that a
// hostile instant gives a far day, never an exception.
constexpr std::int64_t premierInstantCalendrierMs = -62'135'596'800'000; // 0001-01-01
constexpr std::int64_t dernierInstantCalendrierMs = 253'402'300'799'999; // 9999-12-31

// Start of the local day that contains `instantMs`, in ms since the epoch. On a day whose
// midnight does not exist (a daylight-saving jump at 00:00) it is the first instant of the day.
std::int64_t debutJourLocalMs(std::int64_t instantMs);

// The day key "yyyy-MM-dd" of the local day that contains `instantMs`. Keys sort
// chronologically as plain strings.
std::string jourLocal(std::int64_t instantMs);

} // namespace tavi
