#pragma once

#include "platform/demarrage.h"

#include <optional>
#include <string>

namespace tavi {

// The login agent of a system this build cannot register with yet: never active, and saying
// so when asked to register.
class DemarrageIndisponible : public Demarrage {
public:
    bool actif() const override { return false; }
    std::optional<std::string> enregistrer() override {
        return "démarrage à l'ouverture de session indisponible";
    }
    void desenregistrer() override {}
};

} // namespace tavi
