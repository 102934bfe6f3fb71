#include "ui/menu_barre.h"

#include "commun/texte.h"
#include "ui/affichable.h"
#include "ui/lisible.h"
#include "ui/textes_plateforme.h"

namespace tavi {

namespace {

constexpr int durees[] = {10, 15, 30};

EntreeMenu texteSeul(std::string titre) {
    return EntreeMenu{std::move(titre), false, EntreeMenu::Action::aucune, 0, {}};
}

// The status line is the child's key information: an entry drawn as enabled, which every menu
// (Qt's and the panels' own) draws in full ink, where a disabled one is faded grey. Choosing
// it does nothing.
EntreeMenu statut(std::string titre) {
    return EntreeMenu{std::move(titre), true, EntreeMenu::Action::aucune, 0, {}};
}

EntreeMenu action(std::string titre, EntreeMenu::Action quoi, int minutes = 0) {
    return EntreeMenu{std::move(titre), true, quoi, minutes, {}};
}

} // namespace

std::string IconeBarre::cle() const {
    static const char* const noms[] = {"link.badge.plus", "moon.zzz.fill", "hourglass", "sparkles"};
    return std::string(noms[static_cast<int>(symbole)]) + "|" + texte;
}

IconeBarre iconeBarre(const EtatBarre& etat) {
    using S = IconeBarre::Symbole;
    if (!etat.relie) return {S::relier, ""};
    if (etat.regle && etat.regle->bloquerTout)
        return {S::dodo, affichable(etat.regle->titreAffiche(), maxNom)};
    if (etat.resteSecondes) return {S::sablier, dureeLisible(*etat.resteSecondes)};
    return {S::etincelles, ""};
}

std::vector<EntreeMenu> menuBarre(const EtatBarre& etat) {
    using A = EntreeMenu::Action;
    if (!etat.relie)
        return {texteSeul("Tavi Home"),
                action(texte("Relier cet ordinateur à ma famille…"), A::accueil)};

    std::vector<EntreeMenu> menu;
    menu.push_back(texteSeul(texteAvec("Tavi Home · %@", affichable(etat.prenom, maxNom))));
    if (etat.regle && etat.regle->bloquerTout)
        menu.push_back(statut("😴 " + affichable(etat.regle->titreAffiche(), maxNom)));
    else if (!etat.resteSecondes)
        menu.push_back(statut("🟢 " + texte("Pas de limite aujourd'hui")));
    else
        menu.push_back(statut(
            "⏳ " + texteAvec("Il te reste %@ aujourd'hui", dureeLisible(*etat.resteSecondes))));
    menu.push_back(EntreeMenu{});

    // Asking stays open while the computer sleeps: that is when the child needs it.
    EntreeMenu demander = action("🙋 " + texte("Demander du temps"), A::aucune);
    for (int minutes : durees)
        demander.sousMenu.push_back(
            action(texteAvec("%d min", std::to_string(minutes)), A::demander, minutes));
    menu.push_back(std::move(demander));

    if (const auto tirelire = minutesTirelire(etat.tirelireMin)) {
        const std::string total = std::to_string(*tirelire);
        EntreeMenu entree = action("⭐ " + texteAvec("Ma tirelire : %d min", total), A::aucune);
        for (int minutes : durees)
            if (minutes <= *etat.tirelireMin)
                entree.sousMenu.push_back(action(
                    texteAvec("Utiliser %d min", std::to_string(minutes)), A::tirelire, minutes));
        entree.sousMenu.push_back(
            action(texteAvec("Tout utiliser (%d min)", total), A::tirelire, *tirelire));
        menu.push_back(std::move(entree));
    }
    if (etat.message) menu.push_back(texteSeul(affichable(*etat.message, maxNom)));
    menu.push_back(EntreeMenu{});

    menu.push_back(action(texte("Ce que tes parents peuvent voir"), A::ceQueVoient));
    if (!etat.agentActif)
        menu.push_back(action("⚠️ " + texte(TextesPlateforme::laisserOuvrir()), A::reglages));
    menu.push_back(texteSeul(texteAvec("Version %@", etat.version)));
    return menu;
}

} // namespace tavi
