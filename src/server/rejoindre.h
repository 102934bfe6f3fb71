#pragma once

#include "commun/attendu.h"
#include "rules/consigne_json.h"

#include <optional>
#include <string>
#include <string_view>

namespace tavi {

// The server's answer to a pairing code: this computer's new token and who it belongs to.
struct Rejoindre {
    struct Enfant {
        std::string id;
        std::string prenom;
        std::optional<std::string> langue;
    };
    struct Ordinateur {
        std::string id;
        std::string nom;
    };
    std::string jeton;
    Enfant enfant;
    Ordinateur ordinateur;
};

// Decoded as strictly as the rule set: every member required except the language, and a
// token that fails `jetonValide` makes the whole answer undecodable.
Attendu<Rejoindre, ErreurDecodage> decoderRejoindre(std::string_view texte);

} // namespace tavi
