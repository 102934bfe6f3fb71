#include "ui/textes_plateforme.h"

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <initializer_list>
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

namespace {

// Starts the first of `pages` found on the PATH: each desktop has its own settings program.
void ouvrirPremier(std::initializer_list<std::pair<const char*, QStringList>> pages) {
    for (const auto& [programme, arguments] : pages) {
        const QString chemin = QStandardPaths::findExecutable(QString::fromUtf8(programme));
        if (!chemin.isEmpty() && QProcess::startDetached(chemin, arguments)) return;
    }
}

} // namespace

void ouvrirReglagesLecture() {
    ouvrirPremier({
        {"gnome-control-center", {"universal-access"}},
        {"systemsettings", {"kcm_access"}},
        {"xfce4-accessibility-settings", {}},
        {"mate-at-properties", {}},
    });
}

const char* laisserOuvrir() {
    return "Laisser Tavi Home s'ouvrir avec ton ordinateur…";
}

const char* etapeDemarrage() {
    return "Laisse Tavi Home s'ouvrir avec ton ordinateur : Paramètres › Applications au "
           "démarrage, puis active Tavi Home dans la liste.";
}

void ouvrirReglagesDemarrage() {
    ouvrirPremier({
        {"gnome-tweaks", {}},
        {"systemsettings", {"kcm_autostart"}},
        {"xfce4-session-settings", {}},
        {"mate-session-properties", {}},
        {"cinnamon-session-properties", {}},
        {"lxqt-config-session", {}},
    });
}

const char* conseilInstallation() {
    return "Conseil : installe d'abord Tavi Home avec son paquet.";
}

bool emplacementInstalle(const std::string& executable) {
    // Where a package puts its programs; a copy run from a download or a build folder is not
    // what the login agent will find after an update.
    return executable.starts_with("/usr/") || executable.starts_with("/opt/");
}

const char* ouSeTrouve() {
    return "Tavi Home est dans la zone de notification, près de l'horloge : tu y vois le temps "
           "qui te reste et tu peux demander du temps.";
}

const char* sansIcone() {
    // A stock GNOME shows no icon until the AppIndicator extension is on; the package
    // recommends it, and turning it on is for the parents.
    return "Ton bureau ne montre pas encore l'icône de Tavi Home. Demande à tes parents "
           "d'activer l'extension « AppIndicator » dans Extensions : tu y verras le temps qui te "
           "reste et tu pourras demander du temps.";
}

const char* lectureAdresses() {
    return "Pour cela, Tavi Home lit l'adresse de la page dans Firefox ou Chrome : il faudra "
           "l'autoriser dans les Paramètres. Les sites pour adultes et ceux que tes parents "
           "bloquent font la sieste.";
}

} // namespace tavi::TextesPlateforme
