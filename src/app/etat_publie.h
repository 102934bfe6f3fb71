#pragma once

#include "engine/moteur.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>

namespace tavi {

// What the engine publishes, in one object with these keys in this order: "relie", "regle"
// (as `regleEnJson`), "voile" (null, or its "motif" "pause" or "appli", the application's
// "nom" or null, the rule's "cause"), "reste_secondes" (null without a daily limit) and
// "message" (the text shown to the child, or null).
//
// The time left is given in whole minutes, rounded up and written in seconds: the count goes
// down every second the child uses the computer, and an exact figure would change the state
// every second. Rounded up, 0 means what the rule means by it, that the day's allowance is
// spent.
nlohmann::ordered_json etatPublie(Moteur& moteur);

// Writes the engine's state on `sortie` as one line of JSON each time it differs from the last
// line written, and flushes it. The engine must outlive it.
class SortieEtat {
public:
    SortieEtat(Moteur& moteur, std::ostream& sortie);
    ~SortieEtat();
    SortieEtat(const SortieEtat&) = delete;
    SortieEtat& operator=(const SortieEtat&) = delete;

    void publier();

private:
    Moteur& moteur_;
    std::ostream& sortie_;
    std::optional<std::string> derniere_;
    std::unique_ptr<Abonnement> abonnement_;
};

} // namespace tavi
