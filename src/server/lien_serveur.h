#pragma once

#include "server/transport.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

// How this process reaches the family server, decided once at its start and never again: a
// relay that appears or goes later changes nothing until the next start.
struct LienServeur {
    std::shared_ptr<Transport> transport;
    // The base every request is given; absent, the store's "serveur" setting.
    std::optional<std::string> base;
    // The guardian's relay every exchange goes through; absent, they go to the server itself.
    std::optional<std::filesystem::path> relais;

    // Through the guardian's relay when it is there: the store's "serveur" setting, which the
    // child may write, is then ignored. Else straight to the server.
    static LienServeur deCeProcessus();
    static LienServeur direct();
};

} // namespace tavi
