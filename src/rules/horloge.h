#pragma once

#include "platform/horloges.h"
#include "platform/reglages.h"

#include <cstdint>

namespace tavi {

// The server's time, kept from one good sample of a heartbeat answer anchored to the
// monotonic clock. The child can set the wall clock; rules are evaluated against this one.
// The sample lives in the defaults, so it survives a restart of the agent but not a reboot
// (the monotonic clock starts again at boot, which the boot identity reveals).
namespace Horloge {

// The identity of the current boot, -1 when it cannot be read. It only tells whether a stored
// monotonic reading belongs to this boot.
std::int64_t demarrage(const Horloges& horloges);

// Offers a sample: `serveurMs` is the server time of an answer (0 when absent), `envoiMs` and
// `recuMs` monotonic readings taken just before the request left and just after its answer
// came. Within five minutes of a sample of the same boot, only an equal or shorter round trip
// replaces it.
void noter(Reglages& reglages, const Horloges& horloges, std::int64_t serveurMs,
           std::int64_t envoiMs, std::int64_t recuMs);

// The server's time now, in ms since the epoch: the sample moved on by the monotonic clock;
// after a reboot or before any sample, the wall clock corrected by the last known offset.
std::int64_t maintenant(const Reglages& reglages, const Horloges& horloges);

} // namespace Horloge

} // namespace tavi
