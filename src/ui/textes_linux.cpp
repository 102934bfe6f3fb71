#include "ui/textes_plateforme.h"

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <utility>

namespace tavi::TextesPlateforme {

const char* navigateurIllisible() {
    return "Le filtre des sites marche avec Firefox, Chrome, Chromium, Edge, Brave et Vivaldi : "
           "utilise l'un d'eux.";
}

const char* lectureRefusee() {
    // Browsers give their addresses to the accessibility bus, which the desktop turns on.
    return "Autorise Tavi Home à lire l'adresse des pages : Paramètres › Accessibilité.";
}

const char* boutonReglages() {
    return "Ouvrir les Paramètres";
}

void ouvrirReglagesLecture() {
    // The accessibility page of the desktops that have one, first found on the PATH.
    const std::pair<const char*, QStringList> pages[] = {
        {"gnome-control-center", {"universal-access"}},
        {"systemsettings", {"kcm_access"}},
        {"xfce4-accessibility-settings", {}},
        {"mate-at-properties", {}},
    };
    for (const auto& [programme, arguments] : pages) {
        const QString chemin = QStandardPaths::findExecutable(QString::fromUtf8(programme));
        if (!chemin.isEmpty() && QProcess::startDetached(chemin, arguments)) return;
    }
}

} // namespace tavi::TextesPlateforme
