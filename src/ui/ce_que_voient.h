#pragma once

#include "rules/consigne.h"

#include <optional>
#include <string>
#include <vector>

namespace tavi {

// One line of the panel: an icon, then a message that wraps.
struct PointPanneau {
    std::string icone;
    std::string texte;
    friend bool operator==(const PointPanneau&, const PointPanneau&) = default;
};

// What the panel says, chosen by the report switches of the rule set in force (absent before
// the first one): what the parents see, then the one line of what they do not.
struct CeQueVoient {
    std::vector<PointPanneau> voient;
    PointPanneau voientPas;
    friend bool operator==(const CeQueVoient&, const CeQueVoient&) = default;
};

CeQueVoient ceQueVoient(const std::optional<Consigne>& consigne);

} // namespace tavi
