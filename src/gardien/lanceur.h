#pragma once

#include "gardien/sessions_logind.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tavi {

// Everything the start of the agent in one session needs, gathered before anything is started:
// what the child's account holds (the session leader's environment) is read and checked here.
struct Lancement {
    std::string executable;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string utilisateur;
    std::string maison;
    std::vector<gid_t> groupes;
    // NAME=value, the agent's whole environment.
    std::vector<std::string> environnement;
};

// The agent's environment is made here, never inherited: nothing the guardian's own
// environment holds (LD_PRELOAD, TZ, a proxy) reaches it, and from the session it takes only
// values checked one by one. Absent when the user is unknown to the system.
std::optional<Lancement> preparerLancement(const SessionLogind& session,
                                           const std::string& agent, const std::string& relais);

// The X authority files the session's processes name, the leader's first: files of the
// session's user, at most four. The child can rewrite these names and these files.
std::vector<std::string> autoritesX(const SessionLogind& session);

// A started agent: its pid, and whether it is the guardian's own child (to reap with waitpid)
// or a process of the service manager's.
struct AgentLance {
    pid_t pid = 0;
    bool enfant = false;
};

// Starts the agent in a session as its user.
class Lanceur {
public:
    virtual ~Lanceur() = default;
    virtual std::optional<AgentLance> lancer(const Lancement& lancement) = 0;
};

// A child of the guardian that becomes the user: its own session, default signals, no
// descriptor of the guardian's but standard error, the user's groups, home and environment.
class LanceurFork : public Lanceur {
public:
    std::optional<AgentLance> lancer(const Lancement& lancement) override;
};

// Where systemd runs the computer, a child of the service would inherit its sandbox (a
// read-only home among others): the agent is a transient unit in the user's slice instead.
class LanceurSystemd : public Lanceur {
public:
    std::optional<AgentLance> lancer(const Lancement& lancement) override;
};

} // namespace tavi
