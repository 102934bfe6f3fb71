#pragma once

#include "temoignage_gardien.h"

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tavi::famille {

// What a computer posts on "/api/enfant/battement". The same path carries three kinds of
// message, told apart by their members: an announcement has "annonce", a stop report has
// neither "annonce" nor "autorisations", a heartbeat always has "autorisations".
enum class GenreMessage { battement, annonce, arret };

struct EntreeSite {
    std::string domaine;
    std::int64_t premierMs = 0;
    std::int64_t dernierMs = 0;
    std::int64_t secondes = 0;
};

struct AppliInstallee {
    std::string id;
    std::string nom;
    std::optional<std::string> categorie;
};

// Per-application use of the last days: each listed day replaces what was stored for it.
struct LotUsage {
    std::map<std::string, std::map<std::string, double>> jours; // day key → app → minutes
    std::map<std::string, std::string> noms;                    // app → display name
};

struct Battement {
    GenreMessage genre = GenreMessage::battement;
    bool actif = false;
    bool incertain = false;
    std::string plateforme;
    std::string version;
    std::optional<std::string> systeme;
    std::map<std::string, bool> autorisations;
    std::optional<std::string> annonce;
    double utiliseJourMin = 0;
    std::vector<EntreeSite> sites;
    std::map<std::string, double> minutesLimites;
    std::optional<LotUsage> usageApplis;
    std::optional<std::vector<AppliInstallee>> applisInstallees;
    // The computer's boot identity and the boot-time clock at which the agent started: the
    // same boot with another start is an agent restarted, another boot a reboot. Older agents
    // send neither.
    std::optional<std::int64_t> demarrageId;
    std::optional<std::int64_t> agentLanceMs;
    // What the guardian saw, when the message came through one; a member that fails its checks
    // is set aside with the reason, and the rest of the message stands: refused, the heartbeat
    // would be sent again with the same member, and the agent would never get its rule set.
    std::optional<TemoignageGardien> gardien;
    std::optional<std::string> gardienEcarte;
};

// Checks every member it knows and refuses the whole message (ErreurRequete 400) at the first
// fault, so that nothing of a bad message is stored; but for the guardian's member, set aside
// alone. Unknown members are ignored: a newer agent may send more. `maintenantMs` is the
// server's clock, against which the guardian's instants are checked.
Battement lireBattement(const nlohmann::json& corps, std::int64_t maintenantMs);

// The scalar members of a message, kept as "what the computer said last".
nlohmann::json resume(const Battement& battement);

} // namespace tavi::famille
