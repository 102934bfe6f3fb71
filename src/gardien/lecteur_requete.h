#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavi {

// One HTTP/1.1 request as the relay received it. Header names in lower case.
struct RequeteRecue {
    std::string methode;
    std::string cible; // origin-form: "/api/...", query included
    std::vector<std::pair<std::string, std::string>> entetes;
    std::string corps;

    std::optional<std::string> entete(std::string_view nom) const;
    // The target without its query.
    std::string chemin() const;
};

// Reads one request from bytes as they arrive, within bounds, and refuses whatever another
// reader could take differently (a smuggled second body, a folded header, a bare CR): the
// peer is the child's account. Only Content-Length bodies; nothing is allocated beyond the
// bounds.
class LecteurRequete {
public:
    struct Bornes {
        std::size_t teteMax = 16 * 1024;
        std::size_t lignesMax = 64;
        std::size_t corpsBattementMax = 1024 * 1024;
        std::size_t corpsMax = 16 * 1024;
    };
    static constexpr std::string_view cheminBattement = "/api/enfant/battement";

    enum class Etat { Suite, Requete, Erreur };

    LecteurRequete() = default;
    explicit LecteurRequete(Bornes bornes) : bornes_(bornes) {}

    // Adds bytes; once a request or an error is there, further bytes are only kept (`reste`).
    Etat fournir(std::string_view octets);
    Etat etat() const { return etat_; }

    const RequeteRecue& requete() const { return requete_; }
    int statutErreur() const { return statut_; } // 400, 413, 431...
    const std::string& raison() const { return raison_; }
    // The bytes after the request (a presence connection's signs of life).
    std::string_view reste() const;

private:
    Etat refuser(int statut, std::string raison);
    Etat lireTete(std::size_t finTete);

    Bornes bornes_;
    Etat etat_ = Etat::Suite;
    std::string tampon_;
    std::size_t debutCorps_ = 0;
    std::size_t tailleCorps_ = 0;
    RequeteRecue requete_;
    int statut_ = 0;
    std::string raison_;
};

} // namespace tavi
