#pragma once

#include "rules/regle_mac.h"

#include <optional>
#include <string>
#include <vector>

namespace tavi {

// What the status item and its menu show of the engine, read at the instant they are drawn.
struct EtatBarre {
    bool relie = false;
    std::optional<RegleMac> regle;
    std::optional<double> resteSecondes;
    std::optional<double> tirelireMin; // from the rule set in force
    std::optional<std::string> message;
    std::string prenom;
    bool agentActif = true;
    std::string version;
};

// The status item: a symbol and a short text; `cle()` changes exactly when the picture does.
struct IconeBarre {
    enum class Symbole { relier, dodo, sablier, etincelles };
    Symbole symbole = Symbole::relier;
    std::string texte;

    std::string cle() const;
    friend bool operator==(const IconeBarre&, const IconeBarre&) = default;
};

// One entry of the menu. Disabled text, an action, a separator, or a submenu.
struct EntreeMenu {
    enum class Action { aucune, accueil, ceQueVoient, reglages, demander, tirelire };

    std::string titre; // empty for a separator
    bool actif = false;
    Action action = Action::aucune;
    int minutes = 0; // what `demander` asks for and `tirelire` spends
    std::vector<EntreeMenu> sousMenu;

    bool separateur() const { return titre.empty(); }
    friend bool operator==(const EntreeMenu&, const EntreeMenu&) = default;
};

IconeBarre iconeBarre(const EtatBarre& etat);

// The menu as it is when it opens. There is no quit entry: the child cannot stop the agent
// from its menu.
std::vector<EntreeMenu> menuBarre(const EtatBarre& etat);

} // namespace tavi
