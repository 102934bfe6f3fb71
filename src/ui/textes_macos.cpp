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
