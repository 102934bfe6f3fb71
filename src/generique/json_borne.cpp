#include "generique/json_borne.h"

#include <algorithm>
#include <string>

namespace tavi {

using nlohmann::json;

namespace {

int profondeur(std::string_view texte) {
    int courante = 0, maximum = 0;
    bool dansTexte = false, echappe = false;
    for (char c : texte) {
        if (dansTexte) {
            if (echappe)
                echappe = false;
            else if (c == '\\')
                echappe = true;
            else if (c == '"')
                dansTexte = false;
        } else if (c == '"') {
            dansTexte = true;
        } else if (c == '[' || c == '{') {
            maximum = std::max(maximum, ++courante);
        } else if (c == ']' || c == '}') {
            --courante;
        }
    }
    return maximum;
}

} // namespace

json analyserDocument(std::string_view texte, std::size_t tailleMax, int profondeurMax) {
    if (texte.size() > tailleMax)
        throw DocumentInvalide("document trop grand (" + std::to_string(texte.size()) +
                               " octets, au plus " + std::to_string(tailleMax) + ")");
    if (profondeur(texte) > profondeurMax)
        throw DocumentInvalide("document imbriqué sur plus de " + std::to_string(profondeurMax) +
                               " niveaux");
    try {
        return json::parse(texte);
    } catch (const json::exception& e) {
        std::string raison = e.what();
        if (auto fin = raison.find("] "); fin != std::string::npos) raison.erase(0, fin + 2);
        throw DocumentInvalide("JSON illisible : " + raison);
    }
}

} // namespace tavi
