#pragma once

#include "platform/abonnement.h"
#include "platform/alimentation.h"

#include <memory>

namespace tavi {

class BusSd;

// Coming sleeps and power-offs from logind, over the system bus. Two delay inhibitors ("sleep"
// and "shutdown") are held from the start, so that logind waits for us before going on: it
// announces each with PrepareForSleep(true) / PrepareForShutdown(true) and goes on once every
// delay inhibitor is let go, or after its own bound (InhibitDelayMaxSec, 5 s by default).
// Letting go is the acknowledgement: `Accord` closes the inhibitor's descriptor. After a wake,
// or a power-off called off, the inhibitor is taken again for the next time.
//
// Where logind or the system bus is missing nothing is announced; the bus is tried again in
// the background and the inhibitors taken when it comes.
//
// Main thread only. The bus must outlive this object.
class AlimentationLogind : public Alimentation {
public:
    explicit AlimentationLogind(BusSd& systeme);
    ~AlimentationLogind() override;
    AlimentationLogind(const AlimentationLogind&) = delete;
    AlimentationLogind& operator=(const AlimentationLogind&) = delete;

    // Whether logind is waiting for us at its next sleep / power-off.
    bool retientVeille() const;
    bool retientArret() const;

    struct Etat;

private:
    std::shared_ptr<Etat> etat;
    std::unique_ptr<Abonnement> suivi;
};

} // namespace tavi
