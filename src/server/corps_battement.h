#pragma once

#include "platform/systeme.h"

#include <nlohmann/json.hpp>
#include <string>

namespace tavi {

// What every heartbeat says, batches aside.
struct EtatAgent {
    bool actif = false;         // the login agent is registered and enabled
    bool incertain = true;      // the agent holds no rule set
    bool automatisation = true; // no browser has refused to be read
    double secondesDuJour = 0;  // today's counted use
};

// Minutes with one decimal, halves away from zero: 87 s is 1.5 min, 86 s 1.4.
double minutesUneDecimale(double secondes);

// The keys present in every heartbeat: "actif", "incertain", "plateforme", "version",
// "systeme", "autorisations" and "utilise_jour_min".
nlohmann::json clesFixesBattement(const Systeme& systeme, const std::string& version,
                                  const EtatAgent& etat);

} // namespace tavi
