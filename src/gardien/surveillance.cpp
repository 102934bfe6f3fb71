#include "gardien/surveillance.h"

#include "gardien/garde_repos.h"
#include "gardien/processus.h"
#include "platform/linux/horloges_linux.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>

namespace tavi {

namespace {

struct Parties {
    SessionsLogind sessions;
    std::unique_ptr<Lanceur> lanceur;
    HorlogesLinux horloges;
    std::unique_ptr<Regards> regards;
};

// The agents' supervision, and the guardian's own count and enforcement beside it: each
// heartbeat carries both.
class SurveillanceSysteme : private Parties, public Surveillance {
public:
    explicit SurveillanceSysteme(const OptionsSupervision& choix)
        : Parties{{},
                  sd_booted() > 0 ? std::unique_ptr<Lanceur>(std::make_unique<LanceurSystemd>())
                                  : std::make_unique<LanceurFork>(),
                  {},
                  creerRegardsX()},
          Surveillance({sessions, *lanceur, horloges}, choix),
          garde({sessions, *regards, horloges, choix.etat},
                [this](uid_t uid, const std::string& session) {
                    return agentDeSession(uid, session);
                },
                [](const SessionLogind& s) { return autoritesX(s); }) {}
    ~SurveillanceSysteme() override { garde.enregistrer(); }

    void tic(const std::set<uid_t>& relies) override {
        Surveillance::tic(relies);
        garde.tic(relies);
    }
    nlohmann::json prendre(uid_t uid, pid_t pid) override {
        auto membre = Surveillance::prendre(uid, pid);
        garde.completer(uid, membre);
        return membre;
    }
    void rendre(uid_t uid, const nlohmann::json& membre) override {
        Surveillance::rendre(uid, membre);
        garde.rendre(uid, membre);
    }
    void consigneRecue(uid_t uid, const std::string& corps, std::int64_t envoiMs,
                       std::int64_t recuMs) override {
        garde.consigneRecue(uid, corps, envoiMs, recuMs);
    }
    nlohmann::json etat() const override {
        auto document = Surveillance::etat();
        document["garde"] = garde.etat();
        return document;
    }

private:
    GardeRepos garde;
};

// The session the account's agent runs in: the one in the foreground, else the first.
const SessionLogind* choisir(const std::vector<SessionLogind>& sessions, uid_t uid) {
    const SessionLogind* choisie = nullptr;
    for (const auto& s : sessions) {
        if (s.uid != uid) continue;
        if (!choisie || (s.etat == "active") > (choisie->etat == "active") ||
            ((s.etat == "active") == (choisie->etat == "active") && s.id < choisie->id))
            choisie = &s;
    }
    return choisie;
}

} // namespace

std::unique_ptr<Supervision> creerSupervision(const OptionsSupervision& options) {
    return std::make_unique<SurveillanceSysteme>(options);
}

Surveillance::Surveillance(Ports p, OptionsSupervision o)
    : ports(p), options(std::move(o)), demarrage(Processus::identifiantDemarrage()) {}

void Surveillance::tic(const std::set<uid_t>& relies) {
    recolter();
    suivreSessions(relies);
    for (auto it = comptes.begin(); it != comptes.end();) {
        Compte& c = it->second;
        if (!c.session) {
            // The session ended (or the account is no longer paired): its agent goes with it,
            // and an absence in course ends there.
            if (c.agent) congedier(*c.agent, SIGTERM);
            c.agent.reset();
            if (c.absence) fermerAbsence(c, "session_finie");
            c.serie = 0;
            c.prochainLancementMs = 0;
        } else {
            if (c.agent && c.agent->session != c.session->id) {
                congedier(*c.agent, SIGTERM);
                c.agent.reset();
            }
            if (c.agent) verifier(c);
            if (!c.agent && ports.horloges.monotoniqueEveilleMs() >= c.prochainLancementMs)
                lancer(c);
        }
        const bool vide = !c.session && !c.agent && c.absences.empty() && c.relances.empty() &&
                          c.absencesPerdues == 0 && c.relancesPerdues == 0;
        it = vide ? comptes.erase(it) : std::next(it);
    }
}

void Surveillance::recolter() {
    for (auto& [uid, c] : comptes)
        if (c.agent && c.agent->enfant && waitpid(c.agent->pid, nullptr, WNOHANG) == c.agent->pid) {
            c.agent->enfant = false; // reaped: nothing left to wait for
            perdre(c, false);
        }
    std::erase_if(aRecolter, [](pid_t pid) {
        const pid_t r = waitpid(pid, nullptr, WNOHANG);
        return r == pid || (r < 0 && errno == ECHILD);
    });
}

void Surveillance::suivreSessions(const std::set<uid_t>& relies) {
    const auto sessions = ports.sessions.graphiques();
    logindRepond = sessions.has_value();
    // Without an answer from logind the sessions are kept as last seen: a bus that hiccups
    // ends no agent.
    if (!sessions) {
        for (auto& [uid, c] : comptes)
            if (!relies.contains(uid)) c.session.reset();
        return;
    }
    for (auto& [uid, c] : comptes)
        c.session.reset();
    for (uid_t uid : relies)
        if (const auto* s = choisir(*sessions, uid)) comptes[uid].session = *s;
}

void Surveillance::verifier(Compte& c) {
    Agent& a = *c.agent;
    const auto e = Processus::etat(a.pid);
    const auto maintenant = ports.horloges.monotoniqueEveilleMs();
    if (!e || e->debutTicks != a.debutTicks || e->lettre == 'Z' || e->lettre == 'X' ||
        e->lettre == 'x')
        return perdre(c, false);
    // A traced agent answers to whoever traces it: it cannot be given back, only replaced.
    if (e->lettre == 't') return perdre(c, true);
    // A stopped agent is continued, and given the usual time to speak again from then; one
    // that stays stopped (stopped again as soon as continued) is replaced as a silent one.
    if (e->lettre == 'T') {
        kill(a.pid, SIGCONT);
        if (!a.arrete) {
            if (!c.absence) {
                ouvrirAbsence(c, a.pid);
                c.absence->arret = true;
            }
            a.arrete = true;
            a.dernierSigneMs = maintenant;
            return;
        }
    }
    // A silent agent was gone from its last word on, not from the moment it was found out.
    if (const auto silence = maintenant - a.dernierSigneMs; silence >= silenceMaxMs) {
        if (!c.absence) ouvrirAbsence(c, a.pid, silence);
        perdre(c, true);
    }
}

// The agent is gone, or is made to go: an absence opens, and the next start waits longer the
// more the agent keeps dying.
void Surveillance::perdre(Compte& c, bool tuer) {
    Agent& a = *c.agent;
    if (tuer)
        congedier(a, SIGKILL);
    else if (a.enfant)
        aRecolter.push_back(a.pid);
    if (!c.absence) ouvrirAbsence(c, a.pid);
    const auto maintenant = ports.horloges.monotoniqueEveilleMs();
    if (maintenant - a.lanceEveilleMs >= vieStableMs) c.serie = 0;
    const std::int64_t attente =
        c.serie == 0 ? 0
                     : std::min<std::int64_t>(attenteMaxMs, 1000LL << std::min(c.serie - 1, 16));
    ++c.serie;
    c.prochainLancementMs = maintenant + attente;
    c.agent.reset();
}

void Surveillance::congedier(Agent& a, int signal) {
    kill(a.pid, signal);
    if (signal != SIGKILL) kill(a.pid, SIGCONT);
    if (a.enfant) aRecolter.push_back(a.pid);
}

void Surveillance::lancer(Compte& c) {
    const auto maintenant = ports.horloges.monotoniqueEveilleMs();
    const auto lancement = preparerLancement(*c.session, options.agent, options.relais);
    const auto lance = lancement ? ports.lanceur.lancer(*lancement) : std::nullopt;
    if (!lance) {
        const std::int64_t attente =
            std::min<std::int64_t>(attenteMaxMs, 1000LL << std::min(c.serie, 16));
        ++c.serie;
        c.prochainLancementMs = maintenant + attente;
        return;
    }
    const auto e = Processus::etat(lance->pid);
    Agent a;
    a.pid = lance->pid;
    a.enfant = lance->enfant;
    a.debutTicks = e ? e->debutTicks : 0;
    a.session = c.session->id;
    a.lanceMs = ports.horloges.muraleMs();
    a.lanceEveilleMs = maintenant;
    a.dernierSigneMs = maintenant;
    c.agent = a;
    c.relances.push_back(a.lanceMs);
    garder(c);
}

void Surveillance::ouvrirAbsence(Compte& c, pid_t pid, std::int64_t depuisMs) {
    c.absence = AbsenceOuverte{pid, ports.horloges.muraleMs() - depuisMs,
                               ports.horloges.monotoniqueMs() - depuisMs};
}

void Surveillance::fermerAbsence(Compte& c, const char* fin) {
    c.absences.push_back(
        {c.absence->debutMs, ports.horloges.monotoniqueMs() - c.absence->debutBootMs, fin});
    c.absence.reset();
    garder(c);
}

// The agent spoke: an absence in course ends, by its return when it is the same process.
void Surveillance::vivant(Compte& c) {
    Agent& a = *c.agent;
    const auto maintenant = ports.horloges.monotoniqueEveilleMs();
    if (!c.absence && a.presenceVue && maintenant - a.dernierSigneMs >= trouMs) {
        c.absences.push_back({ports.horloges.muraleMs() - (maintenant - a.dernierSigneMs),
                              maintenant - a.dernierSigneMs, "retour"});
        garder(c);
    }
    a.dernierSigneMs = maintenant;
    // The same process back: after a stop the guardian undid, or a silence it ended by itself.
    if (c.absence)
        fermerAbsence(c, c.absence->pid != a.pid ? "relance"
                         : c.absence->arret      ? "arret"
                                                 : "retour");
    a.arrete = false;
}

// The records wait for a heartbeat that carries them, within a bound: the oldest go first,
// counted.
void Surveillance::garder(Compte& c) {
    while (c.absences.size() > gardesMax) {
        c.absences.pop_front();
        ++c.absencesPerdues;
    }
    while (c.relances.size() > gardesMax) {
        c.relances.pop_front();
        ++c.relancesPerdues;
    }
}

Surveillance::Agent* Surveillance::agentDe(uid_t uid, pid_t pid) {
    const auto it = comptes.find(uid);
    if (it == comptes.end() || !it->second.agent || it->second.agent->pid != pid) return nullptr;
    return &*it->second.agent;
}

bool Surveillance::estAgent(uid_t uid, pid_t pid) const {
    const auto it = comptes.find(uid);
    if (it == comptes.end() || !it->second.agent || it->second.agent->pid != pid) return false;
    // Between two tics the pid may have been reused by another process of the child's.
    const auto e = Processus::etat(pid);
    return e && e->debutTicks == it->second.agent->debutTicks && e->lettre != 'Z';
}

pid_t Surveillance::agentDeSession(uid_t uid, const std::string& session) const {
    const auto it = comptes.find(uid);
    if (it == comptes.end() || !it->second.agent || it->second.agent->session != session) return 0;
    return it->second.agent->pid;
}

bool Surveillance::agentAttendu(uid_t uid) const {
    const auto it = comptes.find(uid);
    return it != comptes.end() && it->second.session.has_value();
}

void Surveillance::presenceOuverte(uid_t uid, pid_t pid) {
    if (!estAgent(uid, pid)) return;
    Agent& a = *agentDe(uid, pid);
    a.presence = true;
    vivant(comptes[uid]);
    a.presenceVue = true;
}

void Surveillance::presenceFermee(uid_t uid, pid_t pid) {
    if (Agent* a = agentDe(uid, pid)) a->presence = false;
}

void Surveillance::signeDeVie(uid_t uid, pid_t pid) {
    if (estAgent(uid, pid)) vivant(comptes[uid]);
}

} // namespace tavi
