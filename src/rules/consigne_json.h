#pragma once

#include "commun/attendu.h"
#include "rules/consigne.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tavi {

struct ErreurDecodage {
    std::string message;
};

// A rule set is a few kilobytes; anything past this bound is refused unread.
inline constexpr std::size_t tailleMaxConsigne = 1 << 20;

// Decodes a rule set strictly: snake_case or camelCase keys, unknown keys ignored, null read as
// absent, and any member of the wrong type fails the whole document with a message naming it.
Attendu<Consigne, ErreurDecodage> decoderConsigne(std::string_view texte);

// The rule set back in JSON: camelCase keys in declaration order, absent members omitted.
nlohmann::ordered_json encoderConsigne(const Consigne& consigne);

} // namespace tavi
