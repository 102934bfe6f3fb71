#pragma once

#include <cstdint>
#include <string>

namespace tavi {

// The local day follows the system time zone (TZ honoured), Gregorian calendar.

// Start of the local day that contains `instantMs`, in ms since the epoch. On a day whose
// midnight does not exist (a daylight-saving jump at 00:00) it is the first instant of the day.
// Throws std::range_error for an instant whose day cannot be counted in 64-bit milliseconds;
// real clocks never give one.
std::int64_t debutJourLocalMs(std::int64_t instantMs);

// The day key "yyyy-MM-dd" of the local day that contains `instantMs`. Keys sort
// chronologically as plain strings.
std::string jourLocal(std::int64_t instantMs);

} // namespace tavi
