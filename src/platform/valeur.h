#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

namespace tavi {

// Raw bytes kept byte for byte (the rule set as the server sent it).
struct Donnees {
    std::string octets;
    friend bool operator==(const Donnees&, const Donnees&) = default;
};

// A JSON object stored as a whole (per-application records, names).
struct Dictionnaire {
    nlohmann::json objet = nlohmann::json::object();
    friend bool operator==(const Dictionnaire&, const Dictionnaire&) = default;
};

// One typed value of the defaults store. Integers are stored as doubles, as the agent has
// always done: every instant we keep fits in 53 bits.
using Valeur =
    std::variant<double, std::string, bool, std::vector<std::string>, Dictionnaire, Donnees>;

} // namespace tavi
