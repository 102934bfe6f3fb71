#pragma once

#include "reglages.h"

#include <string>

namespace tavi::famille {

struct Enfant {
    std::string id;     // opaque, given to the agent at pairing
    std::string prenom; // unique in the family: the parents' commands name the child by it
    std::string langue;
    std::string fuseau; // IANA name: the child's days and weekly ranges are in this zone
    double tirelireMin = 0;
    Reglages reglages;
    bool operator==(const Enfant&) const = default;
};

} // namespace tavi::famille
