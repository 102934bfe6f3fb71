#pragma once

#include "platform/abonnement.h"
#include "ui/contenu_voile.h"

#include <functional>
#include <memory>

namespace tavi {

// What a veil window needs of the engine: the state it shows and the operations behind its
// buttons. `ActionsMoteur` is the engine's; the capture mode shows fixed states.
//
// Main thread only.
class ActionsVoile {
public:
    virtual ~ActionsVoile() = default;

    // The engine's part of the state (`choixTemps` and `envoi` are the window's own).
    virtual EtatVoile etat() const = 0;
    // `quand` is called after every change of the state until the handle is destroyed.
    [[nodiscard]] virtual std::unique_ptr<Abonnement> observer(std::function<void()> quand) = 0;

    // `fini` is called on the main thread once the request is over, whatever its outcome (the
    // outcome itself comes back as the engine's message).
    virtual void demanderTemps(int minutes, std::function<void()> fini) = 0;
    virtual void utiliserTirelire(int minutes, std::function<void()> fini) = 0;
    virtual void fermerVoileAppli() = 0;
    virtual void ouvrirReglages() = 0;
};

} // namespace tavi
