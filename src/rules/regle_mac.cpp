#include "rules/regle_mac.h"

#include "commun/texte.h"

#include <algorithm>

namespace tavi {

std::string RegleMac::titreAffiche() const {
    if (cause == "limite") return texte("Limite du jour");
    if (cause == "pause_famille") return texte("Pause famille");
    if (cause == "gage") return texte("Gage pas fait");
    if (cause == "coupee") return texte("Coupée par tes parents");
    if (cause == "limite_appli") return texteAvec("Limite : %@", titre);
    if (cause == "site") return texte("Site bloqué");
    if (cause == "navigateur") return texte("Navigateur non pris en charge");
    if (cause == "automatisation") return texte("Autorisation nécessaire");
    // A free code from the server: its own title speaks, as the parents wrote it.
    if (!titre.empty()) return titre;
    return texte("Pause");
}

void RegleMac::fusionner(const RegleMac& autre) {
    if (autre.bloquerTout && !bloquerTout) {
        cause = autre.cause;
        titre = autre.titre;
    }
    bloquerTout = bloquerTout || autre.bloquerTout;
    bloquees.insert(autre.bloquees.begin(), autre.bloquees.end());
    familles.insert(autre.familles.begin(), autre.familles.end());
    fin = std::max(fin, autre.fin);
}

RegleMac RegleMac::fusion(const RegleMac& autre) const {
    RegleMac resultat = *this;
    resultat.fusionner(autre);
    return resultat;
}

} // namespace tavi
