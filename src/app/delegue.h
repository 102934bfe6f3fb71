#pragma once

#include "engine/moteur.h"
#include "platform/alimentation.h"
#include "platform/boucle.h"
#include "platform/copies.h"

#include <chrono>
#include <functional>
#include <memory>

namespace tavi {

class SignauxArret;

// What a paired agent answers when asked to quit.
enum class ReponseFin {
    maintenant, // unpaired: nothing to protect
    annuler,    // a paired agent cannot be quit by the user, by design
    plusTard,   // the computer powers off: the stop is reported first
};

// The agent's shell: it decides whether this copy is the one that runs, builds the rest around
// the engine, and governs how the agent may end.
//
// - One copy per user: the login agent's. A copy started by hand while the computer is paired
//   registers the login agent and, when the agent's copy shows up within `attenteAgent`, asks
//   it to show itself and ends with status 0; otherwise it runs, and looks again every
//   `periodeRelais` whether it must step aside. Which copy is the login agent's may be learnt
//   after the launch (`reconnaitre`: under a guardian, the guardian says so).
// - The welcome window opens at start unless the computer is paired, the child has seen what
//   the parents see under the rules in force and the login agent is registered; and whenever
//   another copy asks.
// - A paired agent refuses to quit; before a power-off it tells the server it stops (for at
//   most `attenteArretSysteme`), on SIGTERM or SIGINT too (for at most `attenteSignal`); a
//   second signal ends it at once. Before a sleep, see Veille.
//
// Main thread only. The engine must not be started yet: `lancer` starts it. Everything handed
// in outlives the delegate. The process ends through `finirProcessus`.
class Delegue {
public:
    static constexpr std::chrono::seconds periodeRelais{2};
    static constexpr std::chrono::milliseconds attenteAgent{4000};
    static constexpr std::chrono::seconds attenteArretSysteme{3};
    static constexpr std::chrono::seconds attenteSignal{4};

    // The windows around the engine, made once this copy is known to be the one that runs;
    // the agent without a display has none.
    class Fenetres {
    public:
        virtual ~Fenetres() = default;
        virtual void montrerAccueil() = 0;
    };
    using FabriqueFenetres = std::function<std::unique_ptr<Fenetres>()>;

    Delegue(Boucle& boucle, Moteur& moteur, Copies& copies, Alimentation& alimentation,
            bool estAgent, FabriqueFenetres fabriqueFenetres = {});
    ~Delegue();
    Delegue(const Delegue&) = delete;
    Delegue& operator=(const Delegue&) = delete;

    // The launch: the hand-over check, then the windows, the sleep watcher, the engine, the
    // place among the copies, the signals and the welcome window when needed.
    void lancer();
    // A request to quit (the desktop's or the session's): `terminer` is called when the answer
    // is to end later.
    ReponseFin demandeFin(std::function<void()> terminer);
    // SIGTERM or SIGINT.
    void auRevoir();
    // Whether this copy is the login agent's, as learnt since it was made: the agent's copy
    // never steps aside, any other looks every `periodeRelais` whether it must.
    void reconnaitre(bool agent);
    // The welcome window: always when `force`, else only when something is missing.
    void montrerSiBesoin(bool force);

private:
    void continuer();
    void attendreAgent(int essai, std::function<void(bool)> suite);
    void passerLaMain();
    void ceder();

    Boucle& boucle_;
    Moteur& moteur_;
    Copies& copies_;
    Alimentation& alimentation_;
    bool estAgent_;
    FabriqueFenetres fabriqueFenetres_;
    std::unique_ptr<Fenetres> fenetres_;
    std::unique_ptr<class Veille> veille_;
    std::unique_ptr<SignauxArret> signaux_;
    std::unique_ptr<Minuterie> passeMain_;
    bool arretSysteme_ = false;
    bool lance_ = false;
    bool verificationEnCours_ = false;
    bool arretEnCours_ = false;
    std::shared_ptr<Delegue*> vivant_ = std::make_shared<Delegue*>(this);
};

} // namespace tavi
