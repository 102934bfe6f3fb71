#pragma once

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
};

// Checks every member it knows and refuses the whole message (ErreurRequete 400) at the first
// fault, so that nothing of a bad message is stored. Unknown members are ignored: a newer
// agent may send more.
Battement lireBattement(const nlohmann::json& corps);

// The scalar members of a message, kept as "what the computer said last".
nlohmann::json resume(const Battement& battement);

} // namespace tavi::famille
