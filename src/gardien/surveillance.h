#pragma once

#include "gardien/lanceur.h"
#include "gardien/sessions_logind.h"
#include "gardien/supervision.h"
#include "platform/horloges.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavi {

// How the guardian's service asks for its supervision of the agents.
struct OptionsSupervision {
    std::string agent;  // the agent's executable, started in each session of a paired account
    std::string relais; // the relay socket the agent is told about (TAVI_RELAIS)
    std::string etat;   // root's state folder: the guardian's count, rule sets and clock
};

// The supervision of the real system: logind's sessions on the system bus, the agents as real
// processes of the children's users (a transient unit where systemd runs the computer), and
// the guardian's own count and enforcement of rest (garde_repos.h) over the X servers.
std::unique_ptr<Supervision> creerSupervision(const OptionsSupervision& options);

// One agent per paired account that has a graphical session, started by the guardian and
// known by its pid and start time: a copy the child starts is never taken for it. The agent
// ending, stopped, traced or silent for `silenceMaxMs` is an absence, which ends when an agent
// speaks again; restarts back off while the agent keeps dying.
//
// The deadlines run on the clock that stops while the computer sleeps (a suspend is no
// silence), the lengths of absences on the one that does not, the stamps on the wall clock.
class Surveillance : public Supervision {
public:
    struct Ports {
        Sessions& sessions;
        Lanceur& lanceur;
        const Horloges& horloges;
    };

    static constexpr std::int64_t silenceMaxMs = 10'000;
    // A gap this long between two signs of life of an agent that held its presence is an
    // absence even when it came back by itself (stopped and continued by the child).
    static constexpr std::int64_t trouMs = 6'000;
    static constexpr std::int64_t attenteMaxMs = 60'000;
    static constexpr std::int64_t vieStableMs = 60'000;
    static constexpr std::size_t parBattement = 100;
    static constexpr std::size_t gardesMax = 1000;

    Surveillance(Ports ports, OptionsSupervision options);

    void tic(const std::set<uid_t>& relies) override;
    bool estAgent(uid_t uid, pid_t pid) const override;
    bool agentAttendu(uid_t uid) const override;
    void presenceOuverte(uid_t uid, pid_t pid) override;
    void presenceFermee(uid_t uid, pid_t pid) override;
    void signeDeVie(uid_t uid, pid_t pid) override;
    nlohmann::json prendre(uid_t uid, pid_t pid) override;
    void rendre(uid_t uid, const nlohmann::json& membre) override;
    // The supervision alone keeps no rule set.
    void consigneRecue(uid_t, const std::string&, std::int64_t, std::int64_t) override {}
    // {"logind": bool, "comptes": [{"uid", "session": {id, type, etat, siege, affichage} or
    // null, "agent": {pid, lance_ms, presence, silence_ms} or null, "relance_dans_ms" (no agent
    // yet), "absence_depuis_ms" (epoch ms or null), "absences", "relances" (counts waiting for a
    // heartbeat)}]}
    nlohmann::json etat() const override;

    // The agent started in session `session` of `uid`, 0 when none runs there.
    pid_t agentDeSession(uid_t uid, const std::string& session) const;

private:
    struct Agent {
        pid_t pid = 0;
        bool enfant = false;
        std::uint64_t debutTicks = 0;
        std::string session;
        std::int64_t lanceMs = 0;
        std::int64_t lanceEveilleMs = 0;
        std::int64_t dernierSigneMs = 0; // awake clock
        bool presence = false;
        bool presenceVue = false;
        bool arrete = false;
    };
    struct AbsenceOuverte {
        pid_t pid = 0;
        std::int64_t debutMs = 0;     // wall clock
        std::int64_t debutBootMs = 0; // clock that counts sleep
        bool arret = false;           // it began with the agent found stopped
    };
    struct Absence {
        std::int64_t debutMs = 0;
        std::int64_t dureeMs = 0;
        std::string fin;
    };
    struct Compte {
        std::optional<SessionLogind> session;
        std::optional<Agent> agent;
        std::optional<AbsenceOuverte> absence;
        std::deque<Absence> absences;
        std::deque<std::int64_t> relances;
        std::int64_t absencesPerdues = 0;
        std::int64_t relancesPerdues = 0;
        int serie = 0;
        std::int64_t prochainLancementMs = 0; // awake clock
    };

    void recolter();
    void suivreSessions(const std::set<uid_t>& relies);
    void verifier(Compte& compte);
    void perdre(Compte& compte, bool tuer);
    void lancer(Compte& compte);
    void ouvrirAbsence(Compte& compte, pid_t pid, std::int64_t depuisMs = 0);
    void fermerAbsence(Compte& compte, const char* fin);
    void vivant(Compte& compte);
    void garder(Compte& compte);
    Agent* agentDe(uid_t uid, pid_t pid);
    void congedier(Agent& agent, int signal);

    Ports ports;
    OptionsSupervision options;
    std::map<uid_t, Compte> comptes;
    std::vector<pid_t> aRecolter;
    bool logindRepond = false;
    std::string demarrage;
};

} // namespace tavi
