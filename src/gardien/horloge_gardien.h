#pragma once

#include "gardien/reglages_fichier.h"
#include "platform/horloges.h"
#include "rules/horloge.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tavi {

// The guardian's own server clock: one sample of the heartbeat answers it relays, anchored to
// the clock that counts sleep and to the boot it belongs to, kept in root's state so that a
// restart of the guardian keeps it. The child can set neither.
class HorlogeGardien {
public:
    HorlogeGardien(const Horloges& horloges, const std::string& chemin);

    // An answer that said `serveurMs`, exchanged between `envoiMs` and `recuMs` (the clock
    // that counts sleep).
    void noter(std::int64_t serveurMs, std::int64_t envoiMs, std::int64_t recuMs);
    // The server's time now, ms since the epoch.
    std::int64_t maintenantMs() const;

private:
    const Horloges& horloges_;
    ReglagesFichier reglages_;
    std::optional<Horloge::Echantillon> propre_;
};

} // namespace tavi
