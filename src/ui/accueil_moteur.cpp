#include "ui/accueil_moteur.h"

#include "server/erreur_api.h"
#include "ui/textes_plateforme.h"

#include <QCoreApplication>
#include <QSystemTrayIcon>

namespace tavi {

void AccueilMoteur::autoriser() {
    // The settings open once the agent is registered, so that it is already in their list.
    moteur_.enregistrerAgent([] { TextesPlateforme::ouvrirReglagesDemarrage(); });
}

void AccueilMoteur::rejoindre(const std::string& code,
                              std::function<void(std::optional<std::string>)> fini) {
    moteur_.rejoindre(code, [fini = std::move(fini)](ResultatApi<Rejoindre> r) {
        if (r)
            fini(std::nullopt);
        else
            fini(messagePourEnfant(r.error()));
    });
}

bool AccueilMoteur::zoneNotification() const {
    return QSystemTrayIcon::isSystemTrayAvailable();
}

bool AccueilMoteur::installe() const {
    return TextesPlateforme::emplacementInstalle(
        QCoreApplication::applicationFilePath().toStdString());
}

} // namespace tavi
