#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavi::famille {

// A weekly range as the parents write it, in the child's local time. The agent never sees it:
// each heartbeat turns it into concrete ranges of absolute time (semaine.h).
struct PlageHebdo {
    int id = 0;
    std::set<int> jours; // 0 = Monday … 6 = Sunday, the day the range starts
    int debutMin = 0;    // minutes after local midnight
    int finMin = 0;      // at or before the start: the range ends the next day; 1440 = midnight
    std::optional<std::set<std::string>> familles; // absent: the whole computer rests
    std::optional<std::string> cause;
    std::optional<std::string> titre;
    bool operator==(const PlageHebdo&) const = default;
};

struct LimiteAppli {
    std::string id; // key of "limites_autres" on the wire: no underscore, see idLimiteValide
    std::string nom;
    double minutes = 0;
    std::set<std::string> applis;
    bool operator==(const LimiteAppli&) const = default;
};

struct Pause {
    std::int64_t finMs = 0;
    std::optional<std::string> titre;
    bool operator==(const Pause&) const = default;
};

struct Filtre {
    bool actif = false; // the built-in adult list applies too; the family's lists always do
    std::set<std::string> bloques;
    std::set<std::string> autorises;
    bool operator==(const Filtre&) const = default;
};

// Everything the parents decide for one child, stored as one JSON document in the child's row:
// it is always read and written whole, and a heartbeat needs all of it.
struct Reglages {
    std::optional<double> limiteJourMin;
    std::optional<Pause> pause;
    std::optional<std::int64_t> ouvertJusquMs;
    std::vector<PlageHebdo> plages;
    std::vector<LimiteAppli> limitesApplis;
    std::set<std::string> coupees;
    std::optional<Filtre> filtre; // absent until the parents set one: the agent then reads no tab
    bool rapportApplis = false;
    bool historiqueSites = false;
    // What the guardian does when the veil is missing while rest is due: "signaler" (record
    // only), "verrouiller" (lock the session) or "fermer_session" (lock, then end it).
    std::string reactionVoile = "verrouiller";
    bool operator==(const Reglages&) const = default;
};

nlohmann::json versJson(const Reglages& reglages);
// Reads the stored form; a document this program did not write throws nlohmann's exceptions.
Reglages reglagesDepuisJson(const nlohmann::json& document);

// The families the agent knows; a name outside them would silently match nothing.
const std::set<std::string>& famillesConnues();

// The reactions the guardian knows, for "reaction_voile".
const std::set<std::string>& reactionsVoile();

// "limites_autres" keys go through the agent's snake_case conversion: an underscore would
// change the key, so identifiers hold letters, digits, '-' and '.' only.
bool idLimiteValide(const std::string& id);

} // namespace tavi::famille
