#pragma once

#include "engine/motif_voile.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace tavi {

// How the session around the veil behaves: `verrouillee` while the whole computer rests (the
// panels hidden, switching applications refused, as far as the desktop lets an application
// ask), `normale` otherwise. An application nap leaves the desktop usable, deliberately.
enum class Presentation { normale, verrouillee };

// The veil controller as the engine sees it: the windows that cover every screen while the
// computer rests, or one application while it naps. The engine decides when and why; the
// controller draws. One per engine, made on first use.
//
// Main thread only.
class Voile {
public:
    virtual ~Voile() = default;

    // The reason shown now; absent when no veil is up. To withdraw a veil the engine clears
    // the reason, calls `retirerFenetres` and puts the presentation back to normal.
    const std::optional<MotifVoile>& motif() const { return motif_; }
    void definirMotif(std::optional<MotifVoile> motif) { motif_ = std::move(motif); }
    bool affiche() const { return motif_.has_value(); }

    // Shows the veil for `motif`, or only keeps it in front when it already shows that very
    // reason: the engine calls this on every tick while the computer rests.
    virtual void montrer(const MotifVoile& motif) = 0;
    // Keeps an existing veil in front and in step with the screens; nothing without a reason.
    virtual void maintenir() = 0;
    // Takes every veil window off the screens; the reason stays.
    virtual void retirerFenetres() = 0;

    virtual Presentation presentation() const = 0;
    virtual void presenter(Presentation presentation) = 0;

    // What the veil has to tell the parents about itself: a kind ("voile_repare" once another
    // program's doing to a window was undone, "saisie_refusee" while another program keeps the
    // keyboard or pointer) and what happened. Set by whoever makes the veil; may stay empty.
    std::function<void(const std::string& nature, const std::string& detail)> signaler;

protected:
    std::optional<MotifVoile> motif_;
};

} // namespace tavi
