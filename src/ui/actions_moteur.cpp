#include "ui/actions_moteur.h"

#include "ui/textes_plateforme.h"

namespace tavi {

EtatVoile ActionsMoteur::etat() const {
    EtatVoile etat;
    if (const auto& consigne = moteur_.consigne()) etat.tirelireMin = consigne->tirelireMin;
    etat.message = moteur_.messageVoile();
    etat.maintenantMs = moteur_.maintenantServeur();
    return etat;
}

void ActionsMoteur::ouvrirReglages() {
    // The veil goes first, so that the settings are not opened under it.
    moteur_.fermerVoileAppli();
    TextesPlateforme::ouvrirReglagesLecture();
}

} // namespace tavi
