#pragma once

#include <QLocale>
#include <cstdint>
#include <string>

namespace tavi {

// A number of seconds as the child reads it: "59 s", "2 min", "1 h 05". Past a minute it is
// rounded up, so the time left is never announced shorter than it is. A negative or
// non-finite count reads as 0 s, one too large as the largest count.
std::string dureeLisible(double secondes);

// The time of day of an instant (ms since the epoch) in the short form of `langue`, in the
// local time zone: "07:30" in French, "7:30 AM" in American English.
std::string heureLisible(std::int64_t ms, const QLocale& langue = QLocale::system());

// `texte` with the spaces where a line must not break made non-breaking: between a number and
// what follows it ("15 min", "1 h 05"), before French double punctuation (" :", " ?", " !",
// " ›", " »") and after "«".
std::string sansCoupure(const std::string& texte);

} // namespace tavi
