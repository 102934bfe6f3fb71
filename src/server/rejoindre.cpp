#include "server/rejoindre.h"

#include "rules/json_strict.h"
#include "server/jeton.h"

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
        Rejoindre rejoint{o.requis("jeton", lireTexte), o.requis("enfant", lireEnfant),
                          o.requis("ordinateur", lireOrdinateur)};
        if (!jetonValide(rejoint.jeton))
            return ErreurDecodage{"jeton : hors du format d'un jeton porteur"};
        return rejoint;
    } catch (const DocumentInvalide& e) {
        return ErreurDecodage{e.what()};
    }
}

} // namespace tavi
