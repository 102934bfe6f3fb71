#pragma once

#include <nlohmann/json.hpp>
#include <cstdint>
#include <set>
#include <string>
#include <sys/types.h>

namespace tavi {

// What the relay needs from the supervision of the agents: which process is the agent the
// guardian started for an account, the presence connections it holds, and the evidence that
// goes to the family server in each heartbeat. The guardian's main thread only.
class Supervision {
public:
    virtual ~Supervision() = default;

    // Every second, and at once after SIGCHLD: follows the sessions of the paired accounts
    // `relies`, reaps the agents that ended, starts the missing ones.
    virtual void tic(const std::set<uid_t>& relies) = 0;

    // Whether `pid` is the agent the guardian started for `uid`, still running.
    virtual bool estAgent(uid_t uid, pid_t pid) const = 0;
    // Whether the guardian expects an agent for `uid` (a paired account with a graphical
    // session): then only that agent may send heartbeats.
    virtual bool agentAttendu(uid_t uid) const = 0;

    // A presence connection of `pid` opened, closed, or gave a sign of life.
    virtual void presenceOuverte(uid_t uid, pid_t pid) = 0;
    virtual void presenceFermee(uid_t uid, pid_t pid) = 0;
    virtual void signeDeVie(uid_t uid, pid_t pid) = 0;

    // The member "gardien" of a heartbeat that `pid` sends for `uid`: what the agent cannot
    // forge. The absences and restarts in it are taken out of the guardian's record; a
    // heartbeat that fails gives them back with `rendre`, so nothing is lost.
    virtual nlohmann::json prendre(uid_t uid, pid_t pid) = 0;
    virtual void rendre(uid_t uid, const nlohmann::json& membre) = 0;

    // A heartbeat of `uid` went through: the answer `corps` (its rule set), exchanged between
    // `envoiMs` and `recuMs` on the clock that counts sleep.
    virtual void consigneRecue(uid_t uid, const std::string& corps, std::int64_t envoiMs,
                               std::int64_t recuMs) = 0;

    // For `tavi-gardien etat`: per account, its sessions and its agent. No secret.
    virtual nlohmann::json etat() const = 0;
};

} // namespace tavi
