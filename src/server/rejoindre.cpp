#include "server/rejoindre.h"

#include "rules/json_strict.h"

namespace tavi {

using nlohmann::json;

Attendu<Rejoindre, ErreurDecodage> decoderRejoindre(std::string_view texte) {
    try {
        json document = analyserDocument(texte, tailleMaxConsigne);
        ObjetLu o(document, "");
        auto lireEnfant = [](const json& v, const std::string& chemin) {
            ObjetLu e(v, chemin);
            return Rejoindre::Enfant{e.requis("id", lireTexte), e.requis("prenom", lireTexte),
                                     e.optionnel("langue", lireTexte)};
        };
        auto lireOrdinateur = [](const json& v, const std::string& chemin) {
            ObjetLu m(v, chemin);
            return Rejoindre::Ordinateur{m.requis("id", lireTexte), m.requis("nom", lireTexte)};
        };
        return Rejoindre{o.requis("jeton", lireTexte), o.requis("enfant", lireEnfant),
                         o.requis("ordinateur", lireOrdinateur)};
    } catch (const DocumentInvalide& e) {
        return ErreurDecodage{e.what()};
    }
}

} // namespace tavi
