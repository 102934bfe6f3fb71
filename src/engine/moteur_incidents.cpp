#include "engine/moteur.h"

namespace tavi {

namespace {

// One report of a kind a minute is enough for the parents to see it; more would only let a
// child who repeats the same trick fill the server's daily quota of signals.
constexpr std::int64_t espacementIncidentMs = 60'000;

} // namespace

void Moteur::signalerIncident(const std::string& nature, const std::string& detail) {
    if (!relie_) return;
    const std::int64_t maintenant = p.horloges.monotoniqueMs();
    if (auto it = incidentsSignales_.find(nature);
        it != incidentsSignales_.end() && maintenant - it->second < espacementIncidentMs)
        return;
    incidentsSignales_[nature] = maintenant;
    api_.signaler(nature, detail);
}

} // namespace tavi
