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

EtatBarre ActionsMoteur::etatBarre() const {
    EtatBarre etat;
    etat.relie = moteur_.relie();
    etat.regle = moteur_.regle();
    etat.resteSecondes = moteur_.resteSecondes();
    if (const auto& consigne = moteur_.consigne()) etat.tirelireMin = consigne->tirelireMin;
    etat.message = moteur_.messageVoile();
    etat.prenom = moteur_.prenom();
    etat.agentActif = moteur_.agentActif();
    etat.version = Moteur::version();
    return etat;
}

void ActionsMoteur::reglages() {
    // Registered first, so that the list the desktop opens already holds the agent.
    moteur_.enregistrerAgent([] { TextesPlateforme::ouvrirReglagesDemarrage(); });
}

} // namespace tavi
