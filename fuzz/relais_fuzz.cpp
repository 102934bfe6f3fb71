#include "gardien/lecteur_requete.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// The relay's request reader on whatever a peer sends, cut in pieces whose sizes come from
// the input: the same bytes must give the same verdict however they arrive, and a request it
// accepts must stay within its bounds.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* octets, std::size_t taille) {
    if (taille < 1) return 0;
    const std::size_t pas = 1 + octets[0] % 64;
    const std::string_view texte(reinterpret_cast<const char*>(octets + 1), taille - 1);

    tavi::LecteurRequete entier;
    const auto verdict = entier.fournir(texte);
    tavi::LecteurRequete morceaux;
    auto etat = tavi::LecteurRequete::Etat::Suite;
    for (std::size_t i = 0; i < texte.size(); i += pas)
        etat = morceaux.fournir(texte.substr(i, pas));
    if (etat != verdict) std::abort();
    if (verdict == tavi::LecteurRequete::Etat::Erreur &&
        entier.statutErreur() != morceaux.statutErreur())
        std::abort();
    if (verdict == tavi::LecteurRequete::Etat::Requete) {
        const auto& requete = entier.requete();
        if (requete.corps != morceaux.requete().corps || requete.cible != morceaux.requete().cible)
            std::abort();
        if (requete.cible.empty() || requete.cible.front() != '/' ||
            requete.corps.size() > tavi::LecteurRequete::Bornes{}.corpsBattementMax ||
            requete.entetes.size() > tavi::LecteurRequete::Bornes{}.lignesMax)
            std::abort();
        for (const auto& [nom, valeur] : requete.entetes)
            if (valeur.find_first_of("\r\n") != std::string::npos) std::abort();
    }
    return 0;
}
