#include "commun/texte.h"

#include <clocale>
#include <libintl.h>

namespace tavi {

namespace {
constexpr const char* domaine = "tavi-home";
}

std::string texte(const char* francais) {
    return dgettext(domaine, francais);
}

std::string texteAvec(const char* modele, std::string_view valeur) {
    std::string resultat = texte(modele);
    for (std::string_view marque : {"%@", "%d"}) {
        if (auto pos = resultat.find(marque); pos != std::string::npos) {
            resultat.replace(pos, marque.size(), valeur);
            break;
        }
    }
    return resultat;
}

void initialiserTextes(const char* dossierCatalogues) {
    // The messages and the order of names follow the user's language; numbers keep their C
    // form, since they go into JSON.
    std::setlocale(LC_MESSAGES, "");
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_COLLATE, "");
    bindtextdomain(domaine, dossierCatalogues);
    bind_textdomain_codeset(domaine, "UTF-8");
}

} // namespace tavi
