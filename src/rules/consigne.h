#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavi {

// The family's rule set for this computer, as the server sends it. Every member is optional
// and an absent member is never replaced by a default here: defaults apply where a member is
// used. Value types, compared member by member.

// What a rule blocks: "tout" (absent mode too) the whole computer, "familles" the listed
// application families, any other mode nothing.
struct RegleJSON {
    std::optional<std::string> mode;
    std::optional<std::vector<std::string>> familles;
    friend bool operator==(const RegleJSON&, const RegleJSON&) = default;
};

// One daily limit shared by a group of applications; every member is required.
struct LimiteMac {
    std::string id;
    std::string nom;
    double minutes = 0;
    std::vector<std::string> applis;
    friend bool operator==(const LimiteMac&, const LimiteMac&) = default;
};

// Settings specific to the computer.
struct MacJSON {
    std::optional<bool> bloquerTout;
    std::optional<std::vector<std::string>> bloquees;
    std::optional<std::vector<std::string>> familles;
    std::optional<std::vector<LimiteMac>> limites;
    std::optional<std::vector<std::string>> coupees;
    friend bool operator==(const MacJSON&, const MacJSON&) = default;
};

// One concrete range of absolute time [debutMs, finMs): the server expands weekly patterns,
// the agent never recurs anything itself.
struct Plage {
    std::int64_t debutMs = 0;
    std::int64_t finMs = 0;
    std::optional<RegleJSON> regle;
    std::optional<std::string> cause;
    std::optional<std::string> titre;
    friend bool operator==(const Plage&, const Plage&) = default;
};

struct FiltreJSON {
    std::optional<bool> actif;
    std::optional<std::vector<std::string>> domainesBloques;
    std::optional<std::vector<std::string>> domainesAutorises;
    friend bool operator==(const FiltreJSON&, const FiltreJSON&) = default;
};

struct Interrupteur {
    std::optional<bool> actif;
    friend bool operator==(const Interrupteur&, const Interrupteur&) = default;
};

struct Consigne {
    std::optional<std::int64_t> heureServeurMs;
    std::optional<bool> protegeMaintenant;
    std::optional<std::int64_t> finMs;
    std::optional<std::string> cause;
    std::optional<std::string> titre;
    std::optional<RegleJSON> regle;
    std::optional<MacJSON> mac;
    std::optional<std::vector<Plage>> programme;
    std::optional<std::int64_t> ouvertJusquMs;
    std::optional<double> limiteJourMin;
    std::optional<double> resteJourMin;
    std::optional<std::string> prenom;
    std::optional<double> tirelireMin;
    std::optional<Interrupteur> rapportApplis;
    std::optional<std::map<std::string, double>> limitesAutres;
    std::optional<FiltreJSON> filtreWeb;
    std::optional<Interrupteur> historiqueSites;
    friend bool operator==(const Consigne&, const Consigne&) = default;
};

} // namespace tavi
