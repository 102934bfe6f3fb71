#pragma once

#include "commun/attendu.h"

#include <optional>
#include <string>

namespace tavi {

// The guardian's conffile: lines "cle = valeur", '#' comments. Root's alone: the child must not
// be able to point the family link at a proxy of theirs.
struct Configuration {
    std::optional<std::string> serveur; // the family server's base address

    bool operator==(const Configuration&) const = default;
};

// Why `adresse` cannot be the family server's: empty when it can. https only, plain http only
// to this computer (127.0.0.0/8, ::1, localhost): anything on the way could rewrite the rules.
std::string refusAdresseServeur(const std::string& adresse);

// A missing file is an empty configuration. A file that root does not own or that others may
// write is refused: whoever can write it chooses where the tokens go.
Attendu<Configuration, std::string> lireConfiguration(const std::string& chemin);

// Replaces the file at once (a temporary file renamed over it), 0644 root, keeping its other
// lines and comments.
Attendu<bool, std::string> ecrireServeur(const std::string& chemin, const std::string& adresse);

} // namespace tavi
