#pragma once

#include "base.h"
#include "battement.h"
#include "consigne.h"
#include "enfant.h"

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavi::famille {

// A parents' command that cannot be done as asked (unknown child, request already answered):
// the message says what to change.
class ErreurFamille : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CodeAppairage {
    std::string code;
    std::int64_t expireMs = 0;
};

struct Appairage {
    std::string jeton;
    Enfant enfant;
    std::string ordinateurId;
    std::string ordinateurNom;
};

// What a valid bearer token opens: one computer of one child, nothing else.
struct Acces {
    std::string ordinateurId;
    std::string enfantId;
    std::string empreinteJeton;
    std::int64_t jetonCreeMs = 0;
};

struct Demande {
    std::int64_t id = 0;
    std::string prenom;
    std::optional<std::string> ordinateurId;
    std::string genre;
    std::int64_t minutes = 0;
    std::string texte;
    std::int64_t creeMs = 0;
    std::string statut; // "en_attente", "accordee" or "refusee"
    std::optional<std::int64_t> reponseMs;
    std::optional<std::int64_t> minutesAccordees;
};

enum class ResultatTirelire { fait, pasDeLimite, pasAssez };

// What one computer stored on one day of its child, counted against the daily quotas.
struct VolumesJour {
    std::int64_t sites = 0; // new (domain, hour) rows
    std::int64_t signaux = 0;
    std::int64_t evenements = 0; // announcements
    std::int64_t applis = 0;     // new (day, application) rows of per-application use
    // Evidence of an interruption or a tampering: stop reports, silences, restarts, drops of
    // the day's use. Counted on past the quota, so that a flood still shows how big it was.
    std::int64_t preuves = 0;
    bool operator==(const VolumesJour&) const = default;
};

// The family's store: one SQLite file, one family. Not thread-safe: one object per connection,
// used by one thread at a time. Every operation takes the current instant as an argument.
class Depot {
public:
    // A pairing code is read aloud and typed at once: a quarter of an hour is plenty.
    static constexpr std::int64_t dureeCodeMs = 15 * 60 * 1000;
    // Reports, sites and events older than this are deleted: the child is told so.
    static constexpr std::int64_t conservationMs = 30LL * 24 * 3600 * 1000;
    // A computer silent for longer than this no longer counts as protected.
    static constexpr std::int64_t silenceMaxMs = 90 * 1000;
    // What one computer may add in a day of its child. A busy child visits a few hundred
    // domains a day, each counted once an hour at most; an agent announces sleeps, wakes and
    // stops, and signals what it blocked; it restates the use of its last 7 days, a few dozen
    // applications each. Far above that, far below filling a disk in 30 days.
    static constexpr VolumesJour quotaJour{5000, 500, 500, 2000, 500};
    // Heartbeats come every 30 s: a longer gap is an agent stalled, slowed or held back.
    static constexpr std::int64_t ecartMaxMs = 35 * 1000;
    // The agent and the guardian sample the same seconds at different moments: a gap of a
    // minute or two is their timing, a larger one an agent that stopped counting.
    static constexpr double ecartCompteMin = 2;

    Depot(const std::string& chemin, Base::Ouverture ouverture);
    Base& base() { return base_; }

    // Children and their settings (depot_enfants.cpp).
    Enfant ajouterEnfant(const std::string& prenom, const std::string& langue,
                         const std::string& fuseau, std::int64_t maintenantMs);
    std::vector<Enfant> enfants();
    Enfant enfant(const std::string& prenom);
    std::optional<Enfant> enfantParId(const std::string& id);
    void retirerEnfant(const std::string& prenom);
    // Reads the child, applies the change and writes it back in one transaction, so a
    // parents' command never overwrites another one's change made in between.
    Enfant modifier(const std::string& prenom, const std::function<void(Enfant&)>& changement);
    CodeAppairage creerCode(const std::string& prenom, std::int64_t maintenantMs);

    // Computers and tokens (depot_ordinateurs.cpp).
    std::optional<Appairage> appairer(const std::string& code, const std::string& installation,
                                      const std::string& nom, const std::string& version,
                                      std::int64_t maintenantMs);
    std::optional<Acces> authentifier(const std::string& jeton);
    std::string renouvelerJeton(const Acces& acces, std::int64_t maintenantMs);
    void retirerOrdinateur(const std::string& id);

    // Heartbeats and the rule set (depot_battements.cpp).
    nlohmann::json battre(const Acces& acces, const Battement& battement,
                          std::int64_t maintenantMs);
    nlohmann::json consigneDe(const Enfant& enfant, const std::optional<std::string>& demandeur,
                              std::int64_t maintenantMs);
    UsageDuJour usageDuJour(const std::string& enfantId, const std::string& jour,
                            const std::optional<std::string>& demandeur);

    // The child's requests and the parents' answers (depot_demandes.cpp).
    std::optional<std::int64_t> demander(const Acces& acces, const std::string& genre,
                                         std::int64_t minutes, const std::string& texte,
                                         std::int64_t maintenantMs);
    ResultatTirelire utiliserTirelire(const Acces& acces, std::int64_t minutes,
                                      std::int64_t maintenantMs);
    // False, storing nothing, when the computer has used up its signals of the day.
    bool signaler(const Acces& acces, const std::string& nature, const std::string& detail,
                  std::int64_t maintenantMs);
    std::vector<Demande> demandes(const std::string& prenom, bool toutes);
    Demande accorder(std::int64_t id, std::optional<std::int64_t> minutes,
                     std::int64_t maintenantMs);
    Demande refuser(std::int64_t id, std::int64_t maintenantMs);

    // What the parents see, and the upkeep (depot_rapport.cpp).
    std::vector<nlohmann::json> rapport(const std::string& prenom, std::int64_t maintenantMs);
    void elaguer(std::int64_t maintenantMs);

private:
    // The parts of a heartbeat (depot_battements.cpp).
    void noterUsage(const std::string& ordinateurId, const Enfant& enfant, const Battement& b,
                    std::int64_t maintenantMs, VolumesJour& v);
    void noterApplis(const std::string& ordinateurId, const LotUsage& lot,
                     std::int64_t maintenantMs, VolumesJour& v);
    void noterAgent(const std::string& ordinateurId, const Battement& b, std::int64_t maintenantMs,
                    VolumesJour& v);
    // Stores one piece of evidence (genre, details as a JSON object) within the day's quota.
    // With `cleMs`, the instant it is about, a piece already stored is not stored or counted
    // again.
    void noterPreuve(const std::string& ordinateurId, const std::string& genre,
                     const nlohmann::json& details, std::int64_t maintenantMs, VolumesJour& v,
                     std::optional<std::int64_t> cleMs = std::nullopt);
    // What the guardian reported (depot_gardien.cpp). Before the computer's line is updated.
    void noterGardien(const std::string& ordinateurId, const Battement& b,
                      std::int64_t maintenantMs, VolumesJour& v);
    // The guardian's count of `jour`, today's key (depot_gardien.cpp), beside the agent's
    // figure of the same day when this message carried one.
    void noterCompteGardien(const std::string& ordinateurId, const std::string& jour,
                            double gardienMin, std::optional<double> agentMin,
                            std::int64_t maintenantMs, VolumesJour& v);
    void creerSchema();
    VolumesJour volumes(const std::string& ordinateurId, const std::string& jour);
    void noterVolumes(const std::string& ordinateurId, const std::string& jour,
                      const VolumesJour& volumes);
    Enfant lireEnfant(Requete& requete) const;
    Demande lireDemande(std::int64_t id);

    Base base_;
};

// The child's zone, falling back to UTC if the system's tzdata lost the name since it was set.
const date::time_zone& fuseauDe(const Enfant& enfant);

} // namespace tavi::famille
