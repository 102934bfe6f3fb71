#pragma once

#include "engine/motif_voile.h"

#include <QLocale>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavi {

// One button of the veil, as it is to be drawn and what pressing it does.
struct BoutonVoile {
    enum class Action {
        choisir,  // opens the duration choices
        demander, // asks the parents for `minutes`
        ok,       // the child acknowledges an application's nap
        reglages, // opens the system's settings where reading the pages is allowed
        tirelire, // spends `minutes` of the piggy bank
    };
    enum class Fond { jaune, blanc, menthe };

    Action action = Action::choisir;
    std::string emoji; // drawn before the title where a colour emoji face exists
    std::string titre;
    Fond fond = Fond::blanc;
    int minutes = 0;
    bool desactive = false;

    friend bool operator==(const BoutonVoile&, const BoutonVoile&) = default;
};

// What a veil shows besides its reason: the engine's state and the window's own.
struct EtatVoile {
    std::optional<double> tirelireMin; // from the rule set in force
    std::optional<std::string> message;
    std::int64_t maintenantMs = 0; // the server's clock
    bool choixTemps = false;       // the duration choices are open
    bool envoi = false;            // a request is under way

    friend bool operator==(const EtatVoile&, const EtatVoile&) = default;
};

// Everything a veil window draws, top to bottom; the widgets only lay it out. Equal contents
// draw the same picture, so a window redraws only when its content changes.
struct ContenuVoile {
    std::string emoji;
    std::string titre;
    std::string badge; // the rule's title, always shown
    std::optional<std::string> reveil;
    std::optional<std::string> question; // above the duration choices
    std::vector<BoutonVoile> rangee;     // the duration choices, or "ask" with "OK" beside it
    std::vector<BoutonVoile> suite;      // under the row: the settings, the piggy bank
    std::optional<std::string> message;

    friend bool operator==(const ContenuVoile&, const ContenuVoile&) = default;
};

// The content of a veil for `motif` in `etat`; hours in the short form of `langue`, in the
// local time zone.
ContenuVoile contenuVoile(const MotifVoile& motif, const EtatVoile& etat,
                          const QLocale& langue = QLocale::system());

// The emoji of a veil: by the rule's cause, else by words of its title.
std::string emojiVoile(const RegleMac& regle);

} // namespace tavi
