#pragma once

#include "ui/accueil_vue.h"
#include "ui/actions_accueil.h"

#include <QPointer>

namespace tavi {

// The welcome window: one at a time, opened from the menu (pairing, or only the panel of what
// the parents see), at the first start, or when a new rule set asks for a report the child has
// not been shown. It floats above other windows, centred on the primary screen, and takes the
// keyboard.
//
// Main thread only.
class FenetreAccueil {
public:
    FenetreAccueil() = default;
    ~FenetreAccueil();
    FenetreAccueil(const FenetreAccueil&) = delete;
    FenetreAccueil& operator=(const FenetreAccueil&) = delete;

    // Opens the window, closing the one already open. `actions` must outlive it.
    void montrer(ActionsAccueil& actions, bool seulementCeQueVoient);
    // The window open now, or null.
    AccueilVue* fenetre() const { return fenetre_; }

private:
    QPointer<AccueilVue> fenetre_;
};

} // namespace tavi
