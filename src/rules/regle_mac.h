#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace tavi {

// The rule in force for this computer at one instant: what is blocked, why and until when.
// "Nothing applies" is an absent rule (std::optional), never an empty one.
struct RegleMac {
    bool bloquerTout = false;
    std::set<std::string> bloquees; // application identifiers
    std::set<std::string> familles; // family names, matched through the application category
    std::string cause;
    std::string titre;
    std::int64_t fin = 0; // ms since the epoch; 0 means no known end

    // The text the child reads for this rule, in the user's language.
    std::string titreAffiche() const;

    // This rule combined with `autre`: blocks add up, the later end wins, and the message is
    // the receiver's unless `autre` is what makes the block total.
    RegleMac fusion(const RegleMac& autre) const;
    // The same, in place (the evaluation folds many ranges without copying).
    void fusionner(const RegleMac& autre);

    friend bool operator==(const RegleMac&, const RegleMac&) = default;
};

} // namespace tavi
