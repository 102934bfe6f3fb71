#pragma once

#include "platform/systeme.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tavi {

// What every heartbeat says, batches aside.
struct EtatAgent {
    bool actif = false;         // the login agent is registered and enabled
    bool incertain = true;      // the agent holds no rule set
    bool automatisation = true; // no browser has refused to be read
    double secondesDuJour = 0;  // today's counted use
    // Which boot and which process speak, so that the server tells a restart of the agent from
    // a reboot: the boot identity (-1 when unknown) and the boot-time monotonic ms at which the
    // process started (absent outside the agent).
    std::int64_t demarrageId = -1;
    std::optional<std::int64_t> lanceMs;
};

// Minutes with one decimal, halves away from zero: 87 s is 1.5 min, 86 s 1.4.
double minutesUneDecimale(double secondes);

// The keys present in every heartbeat: "actif", "incertain", "plateforme", "version",
// "systeme", "autorisations" and "utilise_jour_min", with those of `ajouterLancement`.
nlohmann::json clesFixesBattement(const Systeme& systeme, const std::string& version,
                                  const EtatAgent& etat);

// "demarrage_id" when the boot identity is known, and "agent_lance_ms" when given.
void ajouterLancement(nlohmann::json& corps, std::int64_t demarrageId,
                      std::optional<std::int64_t> lanceMs);

} // namespace tavi
