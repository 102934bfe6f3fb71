#pragma once

#include "gardien/supervision.h"

#include <memory>
#include <string>

namespace tavi {

// How the guardian's service asks for its supervision of the agents.
struct OptionsSupervision {
    std::string agent;  // the agent's executable
    std::string relais; // the relay socket the agent is told about
};

// The supervision the service runs with.
std::unique_ptr<Supervision> creerSupervision(const OptionsSupervision& options);

} // namespace tavi
