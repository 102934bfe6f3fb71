#pragma once

#include "platform/abonnement.h"
#include "platform/reglages.h"
#include "platform/session.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tavi {

// The application in front during a tick, as the engine sees it.
struct AppliDeFace {
    std::string id;
    std::string nom;
};

// Whether the computer is in active use, and the rule that decided it, for `tavi activite`.
// The reason codes are stable: "ecrans_en_veille", "session_en_arriere", "ecran_verrouille",
// "hors_console", "saisie_recente", "inactivite_inconnue", "affichage_retenu", "inactif".
struct DecisionUsage {
    bool utilise = false;
    std::string raison;
};

// Day key -> application identifier -> seconds of use.
using UsageParAppli = std::map<std::string, std::map<std::string, double>>;

// How long the child really uses the computer today, in total and per application in front.
// Every counted tick lands in the defaults store at once, in one transaction, so a crash or a
// power cut loses at most that tick.
//
// Main thread only, like the store and the session it reads.
class Compteur {
public:
    // `maintenantMs` gives the instant the day key is taken from. The engine hands in the
    // server-corrected clock: a child who sets the computer's clock to tomorrow must not get a
    // fresh day, with its fresh allowance.
    Compteur(Reglages& reglages, Session& session, std::function<std::int64_t()> maintenantMs);

    Compteur(const Compteur&) = delete;
    Compteur& operator=(const Compteur&) = delete;

    // `secondes` since the previous engine tick on the monotonic clock; `enPause` while the
    // rule veil covers the screen; `appli` the application in front, absent when none.
    void tic(double secondes, bool enPause, const std::optional<AppliDeFace>& appli);
    // A gap of `secondes` that the clock which stops during sleep saw too: the agent was
    // stopped or stalled while the computer ran. It counts whole, as the ticks it missed would
    // have, when the computer is in use at the resume and its last input came during the gap.
    void ticApresArret(double secondes, bool enPause, const std::optional<AppliDeFace>& appli);

    // Counted seconds of today; 0 until the first counted tick of a new day.
    double secondesDuJour() const;
    // Seconds of use of one application today, for its own allowance.
    double secondesAppliDuJour(const std::string& id);

    bool utiliseMaintenant() const;
    DecisionUsage decision() const;
    static DecisionUsage decider(bool ecransEnVeille, bool sessionAuPremierPlan,
                                 const Session& session);

    // The per-application record of the last 7 days, read from the store once.
    const UsageParAppli& parAppli();
    // The heartbeat's batch: {"jours": {day: {id: minutes}}, "noms": {id: name}}.
    nlohmann::json lotUsage();
    // The pairing is forgotten: the per-application record and the names go; the day's total
    // stays, so that pairing again on the same day does not give the day back.
    void oublierApplis();

private:
    std::optional<std::string> jourDe(std::int64_t instantMs) const;
    void compter(double secondes, const std::optional<AppliDeFace>& appli);
    void ajouterAppli(const std::string& jour, double secondes, const AppliDeFace& appli);

    Reglages& reglages;
    Session& session;
    std::function<std::int64_t()> maintenantMs;
    bool ecransEnVeille = false;
    bool sessionAuPremierPlan = true;
    std::optional<UsageParAppli> cacheParAppli;
    std::unique_ptr<Abonnement> abonnement;
};

} // namespace tavi
