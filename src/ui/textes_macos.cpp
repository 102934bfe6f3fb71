#include "ui/textes_plateforme.h"

#include <QDesktopServices>
#include <QUrl>

namespace tavi::TextesPlateforme {

const char* navigateurIllisible() {
    return "Le filtre des sites marche avec Safari, Chrome, Edge, Brave, Arc et Vivaldi : "
           "utilise l'un d'eux.";
}

const char* lectureRefusee() {
    return "Autorise Tavi Home à lire l'adresse des pages : Réglages Système › Confidentialité et "
           "sécurité › Automatisation.";
}

const char* boutonReglages() {
    return "Ouvrir les Réglages";
}

void ouvrirReglagesLecture() {
    const QUrl page("x-apple.systempreferences:com.apple.preference.security?Privacy_Automation");
    if (page.isValid()) QDesktopServices::openUrl(page);
}

} // namespace tavi::TextesPlateforme

namespace tavi::TextesPlateforme {

const char* laisserOuvrir() {
    return "Laisser Tavi Home s'ouvrir avec ton Mac…";
}

const char* etapeDemarrage() {
    return "Laisse Tavi Home s'ouvrir avec ton Mac : Réglages Système › Général › Ouverture, puis "
           "active Tavi Home dans « Autoriser en arrière-plan ».";
}

void ouvrirReglagesDemarrage() {
    const QUrl page("x-apple.systempreferences:com.apple.LoginItems-Settings.extension");
    if (page.isValid()) QDesktopServices::openUrl(page);
}

const char* conseilInstallation() {
    return "Conseil : range d'abord Tavi Home dans le dossier Applications.";
}

bool emplacementInstalle(const std::string& executable) {
    return executable.starts_with("/Applications/");
}

const char* sansIcone() {
    // The menu bar is always there.
    return ouSeTrouve();
}

const char* ouSeTrouve() {
    return "Tavi Home est dans la barre de menus, en haut de l'écran : tu y vois le temps qui te "
           "reste et tu peux demander du temps.";
}

const char* lectureAdresses() {
    return "Pour cela, Tavi Home lit l'adresse de la page dans Safari ou Chrome : macOS te "
           "demandera de l'autoriser. Les sites pour adultes et ceux que tes parents bloquent font "
           "la sieste.";
}

} // namespace tavi::TextesPlateforme
