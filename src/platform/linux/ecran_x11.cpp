#include "platform/linux/ecran_x11.h"

#include <X11/Xlib.h>
#include <X11/extensions/dpms.h>
#include <X11/extensions/scrnsaver.h>
#include <utility>

namespace tavi {

EcranX11::EcranX11(std::shared_ptr<AffichageX11> leAffichage) : affichage(std::move(leAffichage)) {
    if (!affichage) return;
    AffichageX11::Appel appel(*affichage);
    int evenement = 0, erreur = 0;
    if (Display* connexion = affichage->connexion())
        economiseur = XScreenSaverQueryExtension(connexion, &evenement, &erreur);
    if (Display* connexion = affichage->connexion())
        dpms = DPMSQueryExtension(connexion, &evenement, &erreur);
}

std::optional<double> EcranX11::secondesInactivite() const {
    if (!affichage || !economiseur) return std::nullopt;
    AffichageX11::Appel appel(*affichage);
    Display* connexion = affichage->connexion();
    if (!connexion) return std::nullopt;
    XScreenSaverInfo info{};
    if (!XScreenSaverQueryInfo(connexion, affichage->racine(), &info) || !affichage->connecte())
        return std::nullopt;
    return static_cast<double>(info.idle) / 1000.0;
}

std::optional<bool> EcranX11::ecransEnVeille() const {
    if (!affichage) return std::nullopt;
    AffichageX11::Appel appel(*affichage);
    Display* connexion = affichage->connexion();
    if (!connexion) return std::nullopt;
    if (!dpms || !DPMSCapable(connexion))
        return affichage->connecte() ? std::optional(false) : std::nullopt;
    CARD16 niveau = DPMSModeOn;
    BOOL actif = False;
    if (!DPMSInfo(connexion, &niveau, &actif) || !affichage->connecte()) return std::nullopt;
    return actif && niveau != DPMSModeOn;
}

} // namespace tavi
