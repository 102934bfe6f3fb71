#include "platform/linux/copies_linux.h"

#include "platform/linux/bus_sd.h"
#include "platform/linux/copies_bus.h"
#include "platform/linux/copies_locales.h"
#include "platform/linux/dossiers_linux.h"

#include <cstdlib>
#include <filesystem>

namespace tavi {

std::unique_ptr<Copies> copiesDeSession(Boucle& boucle, BusSd& session) {
    if (session.connecte()) return std::make_unique<CopiesBus>(session);
    std::filesystem::path dossier;
    // A relative runtime folder is ignored, as the XDG rules require.
    if (const char* execution = std::getenv("XDG_RUNTIME_DIR"); execution && *execution == '/')
        dossier = std::filesystem::path(execution) / "tavi-home";
    else if (auto etat = Dossiers::etat())
        dossier = *etat;
    // Without either, the local form says so in the log and never finds a copy.
    return std::make_unique<CopiesLocales>(boucle, dossier);
}

} // namespace tavi
