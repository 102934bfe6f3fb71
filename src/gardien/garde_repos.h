#pragma once

#include "gardien/etat_garde.h"
#include "gardien/horloge_gardien.h"
#include "gardien/regards.h"
#include "gardien/sessions_logind.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace tavi {

// The guardian's own account of each paired account and its own enforcement of rest, from
// what the child cannot forge: logind's sessions and the X server's idle time and windows, the
// guardian's server clock, the last rule set it relayed. Each second it counts the account's
// use, evaluates the rule and, when the computer must rest and the agent's veil is not there
// for `voileAbsentMaxMs`, acts as the family chose: record, lock the session, or end it.
// Main thread only.
class GardeRepos {
public:
    struct Ports {
        Sessions& sessions;
        Regards& regards;
        const Horloges& horloges;
        std::string dossier; // root's state folder, for the count, the rule sets and the clock
    };
    // The agent the supervision started in a session of `uid`, 0 when none.
    using AgentDe = std::function<pid_t(uid_t uid, const std::string& session)>;
    // The X authority files a session's processes name.
    using AutoritesDe = std::function<std::vector<std::string>(const SessionLogind&)>;

    static constexpr double inactiviteMaxS = 300;
    static constexpr std::int64_t voileAbsentMaxMs = 10'000;
    static constexpr std::int64_t regardPerimeMs = 5'000;
    static constexpr std::int64_t reverrouillageMs = 10'000;
    static constexpr std::int64_t reverrouillageAveugleMs = 30'000;
    static constexpr std::int64_t avisMs = 60'000;
    static constexpr std::size_t verrousAvantFin = 3;
    static constexpr std::int64_t heureMs = 3'600'000;
    static constexpr std::size_t parBattement = 100;
    static constexpr std::size_t gardesMax = 1000;

    GardeRepos(Ports ports, AgentDe agentDe, AutoritesDe autoritesDe);

    void tic(const std::set<uid_t>& relies);
    // A heartbeat answer relayed for `uid`: its rule set, and a sample of the server's time.
    // `envoiMs` and `recuMs` on the clock that counts sleep.
    void consigneRecue(uid_t uid, const std::string& corps, std::int64_t envoiMs,
                       std::int64_t recuMs);
    // Adds to the heartbeat member "gardien" the count and what was done since the last one;
    // `rendre` gives them back when the heartbeat failed.
    void completer(uid_t uid, nlohmann::json& membre);
    void rendre(uid_t uid, const nlohmann::json& membre);
    // For `tavi-gardien etat`.
    nlohmann::json etat() const;
    // Writes every count now (the service stops).
    void enregistrer();

    // The notice before a session ends, in the child's words.
    static const char* const texteAvis;

private:
    struct VoileAbsent {
        std::int64_t debutMs = 0;
        std::int64_t dureeMs = 0;
        std::string raison;
    };
    struct Suivi {
        std::int64_t verrouVuMs = -1;   // awake clock: the account's lock hint first seen
        std::int64_t absentDepuisMs = -1;
        std::int64_t absentDepuisServeurMs = 0;
        std::string raison;
        std::int64_t dernierVerrouMs = -1;
        std::int64_t avisDepuisMs = -1;
        std::string voile; // the latest state, for `etat`
        std::optional<double> inactiviteS;
        AccesX acces;
        std::int64_t accesLuMs = -1;
    };
    struct Compte {
        explicit Compte(const std::string& chemin) : etat(chemin) {}
        EtatGarde etat;
        std::map<std::string, Suivi> suivis; // by session id
        bool repos = false;
        std::string controle = "complet";
        std::deque<std::int64_t> verrous, fins;
        std::deque<VoileAbsent> voiles;
        std::deque<std::int64_t> verrousHeure; // awake clock
    };

    Compte& compte(uid_t uid);
    void suivre(uid_t uid, Compte& c, const SessionLogind& s, bool& utilise,
                std::set<std::string>& affichages);
    void agir(Compte& c, const SessionLogind& s, Suivi& suivi, bool saisieApresVerrou);
    void fermerAbsence(Compte& c, Suivi& suivi);
    void retirerAvis(const SessionLogind& s, Suivi& suivi);
    void avertir(const SessionLogind& s, Suivi& suivi);
    const AccesX& acces(const SessionLogind& s, Suivi& suivi);
    static void borner(Compte& c);

    Ports p;
    AgentDe agentDe_;
    AutoritesDe autoritesDe_;
    HorlogeGardien horloge_;
    std::map<uid_t, Compte> comptes_;
    std::int64_t dernierTicMs_ = -1;
    std::int64_t maintenant_ = 0; // awake clock, this tic
    std::int64_t serveurMs_ = 0;  // the server's time, this tic: the records' stamps
};

} // namespace tavi
