#pragma once

#include "platform/abonnement.h"
#include "rules/consigne.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

// What the welcome window needs of the engine and of the system: the state that chooses its
// step and the operations behind its buttons. `AccueilMoteur` is the engine's; the capture
// shows fixed states.
//
// Main thread only. Every callback comes back on the main thread.
class ActionsAccueil {
public:
    virtual ~ActionsAccueil() = default;

    virtual bool relie() const = 0;
    virtual std::optional<Consigne> consigne() const = 0;
    virtual std::string prenom() const = 0;
    // The child was shown what the parents see under the rule set in force; `consentir`
    // records that they were.
    virtual bool accordDonne() const = 0;
    virtual void consentir() = 0;
    // The login agent's state as last read, and a new reading with `fini` after it.
    virtual bool agentActif() const = 0;
    virtual void lireEtatAgent(std::function<void()> fini) = 0;
    // Registers the login agent, then opens the desktop's list of applications started with
    // the session.
    virtual void autoriser() = 0;
    // Pairs with `code` (already cleaned); `fini` gets the text to show the child when it
    // failed, nothing when it worked.
    virtual void rejoindre(const std::string& code,
                           std::function<void(std::optional<std::string> erreur)> fini) = 0;
    // This program runs from where an installed copy lives.
    virtual bool installe() const = 0;
    // The desktop shows the agent's icon: it has a notification area or a status-notifier
    // host (a stock GNOME has neither without an extension).
    virtual bool zoneNotification() const = 0;
    // `quand` is called after every change of the engine's state until the handle goes.
    [[nodiscard]] virtual std::unique_ptr<Abonnement> observer(std::function<void()> quand) = 0;
};

} // namespace tavi
