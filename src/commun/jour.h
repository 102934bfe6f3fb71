#pragma once

#include <cstdint>
#include <string>

namespace tavi {

// The local day follows the system time zone, Gregorian calendar. Both functions are total: an
// instant outside years 1 to 9999 is taken as the nearest end of that range, so that a hostile
// instant gives a far day, never an exception.

// Start of the local day that contains `instantMs`, in ms since the epoch. On a day whose
// midnight does not exist (a daylight-saving jump at 00:00) it is the first instant of the day.
std::int64_t debutJourLocalMs(std::int64_t instantMs);

// The day key "yyyy-MM-dd" of the local day that contains `instantMs`. Keys sort
// chronologically as plain strings.
std::string jourLocal(std::int64_t instantMs);

} // namespace tavi
