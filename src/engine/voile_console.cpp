#include "engine/voile_console.h"

namespace tavi {

void VoileConsole::montrer(const MotifVoile& motif) {
    if (motif_ == motif && fenetres_) return maintenir();
    motif_ = motif;
    fenetres_ = true;
    ++constructions_;
    maintenir();
}

void VoileConsole::maintenir() {
    if (!motif_) return;
    presenter(motif_->estPause() ? Presentation::verrouillee : Presentation::normale);
}

} // namespace tavi
