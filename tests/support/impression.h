#pragma once

#include "rules/regle_mac.h"

#include <ostream>

namespace tavi {

// Readable failures: GoogleTest finds this through the argument's namespace.
inline void PrintTo(const RegleMac& r, std::ostream* os) {
    *os << "{bloquerTout " << r.bloquerTout << ", bloquees [";
    for (const auto& b : r.bloquees)
        *os << b << ' ';
    *os << "], familles [";
    for (const auto& f : r.familles)
        *os << f << ' ';
    *os << "], cause \"" << r.cause << "\", titre \"" << r.titre << "\", fin " << r.fin << '}';
}

} // namespace tavi
