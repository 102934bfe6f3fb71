#include "ui/icone_barre.h"
#include "ui/lisible.h"
#include "ui/menu_barre.h"
#include "ui/textes_plateforme.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace tavi {
namespace {

using A = EntreeMenu::Action;
using S = IconeBarre::Symbole;

EtatBarre relie() {
    EtatBarre e;
    e.relie = true;
    e.prenom = "Léa";
    e.version = "1.2.3";
    return e;
}

RegleMac dodo(std::string titre) {
    RegleMac r;
    r.bloquerTout = true;
    r.cause = "horaire";
    r.titre = std::move(titre);
    return r;
}

const EntreeMenu* trouver(const std::vector<EntreeMenu>& menu, std::string_view debut) {
    for (const auto& e : menu)
        if (e.titre.starts_with(debut)) return &e;
    return nullptr;
}

TEST(MenuBarre, NonRelieOuRelieAvecUneLimiteDansLOrdreEtSansQuitter) {
    const auto seul = menuBarre(EtatBarre{});
    ASSERT_EQ(seul.size(), 2u);
    EXPECT_EQ(seul[1].action, A::accueil);

    EtatBarre e = relie();
    e.resteSecondes = 45 * 60;
    e.message = "C'est envoyé !";
    e.agentActif = false;
    std::string titres;
    for (const auto& entree : menuBarre(e))
        titres += entree.titre + (entree.actif ? "|" : "/");
    // The status line is drawn in full ink: a disabled entry would be faded grey.
    EXPECT_EQ(titres,
              std::string("Tavi Home · Léa/⏳ Il te reste 45 min aujourd'hui|/🙋 Demander du temps|"
                          "C'est envoyé !//Ce que tes parents peuvent voir|⚠️ ") +
                  TextesPlateforme::laisserOuvrir() + "|Version 1.2.3/");
    EXPECT_EQ(trouver(menuBarre(e), "⚠️")->action, A::reglages);
    e.resteSecondes.reset();
    EXPECT_EQ(menuBarre(e)[1].titre, "🟢 Pas de limite aujourd'hui");
}

TEST(MenuBarre, EndormiLeTitreDeLaRegleEtDemanderResteOuvert) {
    EtatBarre e = relie();
    e.regle = dodo("Au lit");
    e.resteSecondes = 600; // sleeping wins over the time left
    const auto menu = menuBarre(e);
    EXPECT_EQ(menu[1].titre, "😴 Au lit");
    EXPECT_TRUE(menu[1].actif);
    EXPECT_TRUE(trouver(menu, "🙋")->sousMenu[0].actif);
    EXPECT_EQ(iconeBarre(e), (IconeBarre{S::dodo, "Au lit"}));

    // A hostile title is drawn cut, never whole.
    e.regle = dodo(std::string(5000, 'x'));
    e.prenom = std::string(5000, 'y');
    EXPECT_LT(iconeBarre(e).texte.size(), 200u);
    EXPECT_LT(menuBarre(e)[1].titre.size(), 200u);
    EXPECT_LT(menuBarre(e)[0].titre.size(), 200u);
}

TEST(MenuBarre, LaTirelireOffreCeQuElleContientEtToutSonEntier) {
    // {minutes, the amounts offered}; none: no piggy-bank entry.
    const std::pair<double, std::vector<int>> cas[] = {
        {12.4, {10, 12}}, {30, {10, 15, 30, 30}}, {29.9, {10, 15, 29}},
        {0.9, {}},        {std::nan(""), {}},     {std::numeric_limits<double>::infinity(), {}},
        {-5, {}}};
    for (const auto& [minutes, offerts] : cas) {
        EtatBarre e = relie();
        e.tirelireMin = minutes;
        const auto menu = menuBarre(e);
        const EntreeMenu* tirelire = trouver(menu, "⭐");
        ASSERT_EQ(tirelire != nullptr, !offerts.empty()) << minutes;
        if (!tirelire) continue;
        std::vector<int> obtenus;
        for (const auto& s : tirelire->sousMenu) {
            obtenus.push_back(s.minutes);
            EXPECT_EQ(s.action, A::tirelire);
        }
        EXPECT_EQ(obtenus, offerts) << minutes;
    }
}

TEST(TexteBadge, MinutesJusquA99PuisHeuresEtMinutesCommeLeMenu) {
    const std::pair<double, const char*> cas[] = {
        {0, "0"},        {40, "1"},        {59.9, "1"},      {61, "2"},    {45 * 60, "45"},
        {99 * 60, "99"}, {6000, "1h\n40"}, {7140, "1h\n59"}, {7200, "2h"}, {7201, "2h\n01"},
    };
    for (const auto& [secondes, attendu] : cas)
        EXPECT_EQ(texteBadge(dureeLisible(secondes)), attendu) << secondes;
    for (const char* autre : {"", "Au lit", "1 2 3"})
        EXPECT_EQ(texteBadge(autre), "") << autre;
}

} // namespace
} // namespace tavi
