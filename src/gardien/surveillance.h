#pragma once

#include "gardien/supervision.h"

#include <memory>
#include <string>

namespace tavi {

// How the guardian's service asks for its supervision of the agents.
struct OptionsSupervision {
    std::string agent;  // the agent's executable, started in each session of a paired account
    std::string relais; // the relay socket the agent is told about (TAVI_RELAIS)
};

// The supervision of the real system: logind's sessions on the system bus, the agents as real
// processes of the children's users.
std::unique_ptr<Supervision> creerSupervision(const OptionsSupervision& options);

} // namespace tavi
