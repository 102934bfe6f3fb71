#pragma once

#include "rules/regle_mac.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tavi {

// A rule as the programs print it: null when nothing applies, otherwise its fields in a fixed
// order, with the text the child reads under "titre_affiche".
nlohmann::ordered_json regleEnJson(const std::optional<RegleMac>& regle);

// `valeur` as one line of JSON (no line break) that a terminal can show as it stands: besides
// JSON's own escapes, DEL and the C1 controls, which a terminal obeys inside UTF-8 text, are
// written as \u escapes, and broken UTF-8 as U+FFFD. The texts come from the server.
std::string ligneJson(const nlohmann::ordered_json& valeur);

} // namespace tavi
