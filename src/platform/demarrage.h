#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tavi {

// The login agent: what starts the agent in every session of the child's account, and brings
// it back when it is stopped. The copy it starts has TAVI_AGENT=1 in its environment.
//
// Blocking (a round trip to the user's service manager, or a few small files): call it from
// the background pool, never on the main thread. Implementations keep no state between calls.
class Demarrage {
public:
    virtual ~Demarrage() = default;

    // The agent is registered and will start: read from the system's real state each time,
    // so a child who disabled it is seen.
    virtual bool actif() const = 0;
    // Registers the agent; what went wrong, when it could not.
    virtual std::optional<std::string> enregistrer() = 0;
    // Removes it; a failure, or nothing to remove, is ignored.
    virtual void desenregistrer() = 0;

    // Whether a copy whose TAVI_AGENT is `valeur` (null when unset) was started by the agent:
    // only "1" says so.
    static bool estAgent(const char* valeur) { return valeur && std::string_view(valeur) == "1"; }
};

} // namespace tavi
