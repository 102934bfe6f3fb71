#include "observation/texte_borne.h"

#include "generique/utf8.h"

#include <algorithm>

namespace tavi {

std::string texteBorne(std::string_view texte, std::size_t maxOctets) {
    static constexpr std::string_view remplacement = "\xEF\xBF\xBD";
    std::string resultat;
    resultat.reserve(std::min(texte.size(), maxOctets));
    while (!texte.empty()) {
        char32_t point = 0;
        std::size_t longueur = sequenceUtf8(texte, point);
        std::string_view morceau = longueur ? texte.substr(0, longueur) : remplacement;
        if (resultat.size() + morceau.size() > maxOctets) break;
        resultat += morceau;
        texte.remove_prefix(longueur ? longueur : 1);
    }
    return resultat;
}

} // namespace tavi
