#pragma once

#include "engine/moteur.h"
#include "platform/boucle.h"
#include "platform/coffre.h"
#include "platform/demarrage.h"
#include "platform/linux/coffre_secret.h"
#include "platform/linux/horloges_linux.h"
#include "platform/linux/notifications_bus.h"
#include "platform/linux/observation_linux.h"
#include "platform/linux/systeme_linux.h"
#include "platform/reglages.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/lien_serveur.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace tavi {

// The engine on this Linux session: the system's clocks, the desktop as ObservationLinux sees
// it, the system's description, and the veil it is given. The loop, the store, the secret store
// and the login agent are handed in, each to outlive this object: the agent gives the session's
// own, a test temporary ones; the way to the family server too (libcurl, straight to it unless
// told otherwise).
//
// Main thread only. Make it after the QCoreApplication.
class AgentLinux {
public:
    // `fabriqueVoile` makes the veil; empty, the veil has no window.
    AgentLinux(Boucle& boucle, Reglages& reglages, Coffre& coffre, Demarrage& demarrage,
               FabriqueVoile fabriqueVoile = {}, LienServeur lien = LienServeur::direct());
    ~AgentLinux();
    AgentLinux(const AgentLinux&) = delete;
    AgentLinux& operator=(const AgentLinux&) = delete;

    Moteur& moteur() { return *moteur_; }
    ObservationLinux& observation() { return observation_; }
    // The session's notification server, which the engine warns the child through.
    Notifications& notifications() { return notifications_; }

private:
    HorlogesLinux horloges_;
    SystemeLinux systeme_;
    ObservationLinux observation_;
    NotificationsBus notifications_;
    std::unique_ptr<Moteur> moteur_;
};

// The agent of this user's session, where the environment puts its state: the defaults store
// in the state folder (in memory when there is none), the Secret Service with its fallback
// file in the same folder, the user's login agent; the family server through the guardian's
// relay when it is there (LienServeur::deCeProcessus). What `tavi-home` runs and `tavi
// rejoindre` pairs.
class AgentDeSession {
public:
    // `executableAgent`: what the login agent starts; absent, this process's executable.
    explicit AgentDeSession(Boucle& boucle,
                            std::optional<std::filesystem::path> executableAgent = std::nullopt,
                            FabriqueVoile fabriqueVoile = {});
    ~AgentDeSession();
    AgentDeSession(const AgentDeSession&) = delete;
    AgentDeSession& operator=(const AgentDeSession&) = delete;

    Moteur& moteur() { return agent_->moteur(); }
    ObservationLinux& observation() { return agent_->observation(); }
    Notifications& notifications() { return agent_->notifications(); }
    // False when this run's settings will not outlive it (no state folder, or none usable).
    bool persistant() const { return reglages_->persistant(); }
    // The guardian's relay this process talks through; absent without a guardian.
    const std::optional<std::filesystem::path>& relais() const { return relais_; }

    // `Moteur::oublier`, then `fini` on the main thread once the secret store has removed the
    // token and the login agent its entry: both happen on the background pool, and a process
    // that ended before them would leave the pairing half undone.
    void oublier(std::function<void()> fini);

private:
    AgentDeSession(Boucle& boucle, std::optional<std::filesystem::path> executableAgent,
                   FabriqueVoile fabriqueVoile, LienServeur lien);

    class CoffreSuivi;
    class DemarrageSuivi;

    Boucle& boucle_;
    std::optional<std::filesystem::path> relais_;
    std::unique_ptr<ReglagesSqlite> reglages_;
    std::unique_ptr<CoffreSuivi> coffre_;
    std::unique_ptr<DemarrageSuivi> demarrage_;
    std::unique_ptr<AgentLinux> agent_;
    std::unique_ptr<Minuterie> attente_;
};

} // namespace tavi
