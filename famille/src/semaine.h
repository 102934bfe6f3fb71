#pragma once

#include "reglages.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace date {
class time_zone;
}

namespace tavi::famille {

// Days as parents write them: "lu,ma,me", "lu-ve", "sa,di", "lu-me,ve", or "tous".
std::optional<std::set<int>> lireJours(const std::string& texte);
std::string ecrireJours(const std::set<int>& jours);

// "HH:MM" as minutes after midnight; "24:00" is accepted for an end only.
std::optional<int> lireHeure(const std::string& texte, bool fin);
std::string ecrireHeure(int minutes);

struct PlageConcrete {
    std::int64_t debutMs = 0;
    std::int64_t finMs = 0;
    const PlageHebdo* source = nullptr;
    bool operator==(const PlageConcrete&) const = default;
};

// The occurrences of the weekly ranges that overlap [depuisMs, jusquaMs), as absolute instants
// computed in the child's zone, sorted by start. A local time skipped by a daylight-saving
// jump starts or ends at the jump; a local time that happens twice is taken at its first
// occurrence. An occurrence that the jump reduces to nothing is left out.
std::vector<PlageConcrete> plagesConcretes(const std::vector<PlageHebdo>& plages,
                                           std::int64_t depuisMs, std::int64_t jusquaMs,
                                           const date::time_zone& zone);

} // namespace tavi::famille
