#pragma once

#include "commun/attendu.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tavi {

// A paired account: the token the family server gave its computer. Root's alone.
struct CompteRelie {
    uid_t uid = 0;
    std::string compte; // login name
    std::string jeton;
    std::string ordinateurId;
    std::string prenom;

    bool operator==(const CompteRelie&) const = default;
    // Without the token: what `etat` shows.
    nlohmann::json public_() const;
};

// The paired accounts, one file each (`comptes/<uid>.json`, 0600) in a 0700 folder of root.
// A file that is not root's, not 0600 or that does not decode is an error for that account
// only: the others keep working.
class Registre {
public:
    explicit Registre(std::string dossier);

    // None when the account is not paired.
    Attendu<std::optional<CompteRelie>, std::string> lire(uid_t uid) const;
    struct Liste {
        std::vector<CompteRelie> comptes;
        std::vector<std::string> erreurs;
    };
    Liste lister() const;
    Attendu<bool, std::string> ecrire(const CompteRelie& compte) const;
    // True when there was something to forget.
    Attendu<bool, std::string> oublier(uid_t uid) const;

    std::string fichier(uid_t uid) const;

private:
    Attendu<bool, std::string> preparerDossiers() const;
    std::string dossier_;
};

} // namespace tavi
