#pragma once

#include "platform/horloges.h"
#include "platform/reglages.h"

#include <cstdint>
#include <optional>

namespace tavi {

// The server's time, kept from one good sample of a heartbeat answer anchored to the
// monotonic clock. The child can set the wall clock; rules are evaluated against this one.
// The sample lives in the defaults, so it survives a restart of the agent but not a reboot
// (the monotonic clock starts again at boot, which the boot identity reveals). The child can
// rewrite the defaults too: the process keeps the sample it took itself in memory and trusts
// that one first, and a stored sample only until an answer contradicts it.
namespace Horloge {

// The server instants believed, 2020-01-01 to 2100-01-01 UTC. An answer outside them is
// ignored, and the time given is always within them, so that the day's arithmetic stays sane.
constexpr std::int64_t premierInstantMs = 1'577'836'800'000;
constexpr std::int64_t dernierInstantMs = 4'102'444'800'000;

// One sample: the server's time when the answer arrived (corrected by half the round trip),
// the monotonic reading then, the boot it belongs to and the round trip (at least 1 ms: a
// stored round trip below that was not written by us).
struct Echantillon {
    std::int64_t serveurMs = 0;
    std::int64_t monoMs = 0;
    std::int64_t demarrage = -1;
    std::int64_t allerRetourMs = 1;
    bool operator==(const Echantillon&) const = default;
};

// The identity of the current boot, -1 when it cannot be read. It only tells whether a stored
// monotonic reading belongs to this boot.
std::int64_t demarrage(const Horloges& horloges);

// Offers a sample: `serveurMs` is the server time of an answer (0 when absent), `envoiMs` and
// `recuMs` monotonic readings taken just before the request left and just after its answer
// came. Within five minutes of a sample of the same boot, only an equal or shorter round trip
// replaces it, unless it is a stored one the answer contradicts by more than the answer's round
// trip plus a second. `propre` is the process's own sample, which the caller keeps for as long
// as the process lives: a retained or confirmed sample goes there.
void noter(Reglages& reglages, const Horloges& horloges, std::optional<Echantillon>& propre,
           std::int64_t serveurMs, std::int64_t envoiMs, std::int64_t recuMs);

// The server's time now, in ms since the epoch: the process's own sample, else the stored one,
// moved on by the monotonic clock; after a reboot or before any sample, the wall clock
// corrected by the last known offset. Always between the two bounds above.
std::int64_t maintenant(const Reglages& reglages, const Horloges& horloges,
                        const std::optional<Echantillon>& propre);

} // namespace Horloge

} // namespace tavi
