#include "support/fuseau.h"
#include "ui/contenu_voile.h"
#include "ui/lisible.h"
#include "ui/textes_plateforme.h"

#include <QDateTime>
#include <QTimeZone>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace tavi {
namespace {

using Action = BoutonVoile::Action;
const QLocale francais(QLocale::French, QLocale::France);

RegleMac regle(std::string cause, std::string titre = {}, std::int64_t fin = 0) {
    RegleMac r;
    r.cause = std::move(cause);
    r.titre = std::move(titre);
    r.fin = fin;
    return r;
}

// An instant in Paris.
std::int64_t paris(int jour, int heure, int minute) {
    return QDateTime(QDate(2026, 3, jour), QTime(heure, minute), QTimeZone("Europe/Paris"))
        .toMSecsSinceEpoch();
}

ContenuVoile contenu(const MotifVoile& motif, EtatVoile etat = {}) {
    if (etat.maintenantMs == 0) etat.maintenantMs = paris(14, 16, 0);
    return contenuVoile(motif, etat, francais);
}

std::vector<Action> actions(const std::vector<BoutonVoile>& boutons) {
    std::vector<Action> resultat;
    for (const auto& b : boutons)
        resultat.push_back(b.action);
    return resultat;
}

TEST(ContenuVoile, LEmojiVientDeLaCauseSinonDesMotsDuTitre) {
    const std::pair<RegleMac, const char*> cas[] = {
        {regle("limite_appli", "Devoirs"), "⏳"},    {regle("panier", "Au lit"), "🧺"},
        {regle("horaire", "Politesse"), "😴"}, // "lit" inside a word still sleeps
        {regle("horaire", "DÎNER"), "🍽\uFE0F"},  {regle("horaire", "Dinner"), "🍽\uFE0F"},
        {regle("horaire", "Table puis nuit"), "😴"}, // the sleeping words come first
        {regle("horaire", "Homework"), "📚"},        {regle("gage", "Devoirs"), "📚"},
        {regle("horaire", "Football"), "😴"},
    };
    for (const auto& [r, emoji] : cas)
        EXPECT_EQ(emojiVoile(r), emoji) << r.cause << " " << r.titre;
}

TEST(ContenuVoile, LeTitreNommeLOrdinateurOuLAppliEtLaPastilleLaRegle) {
    const auto pause = contenu(MotifVoile::pause(regle("pause_famille")));
    EXPECT_EQ(pause.titre + " · " + pause.badge, "Ton ordinateur fait la sieste · Pause famille");
    const auto appli = contenu(MotifVoile::appli("Minecraft", regle("limite_appli", "Jeux", 1)));
    EXPECT_EQ(appli.titre + " · " + appli.badge, "Minecraft fait la sieste · Limite : Jeux");

    // What the server or a desktop entry names is drawn only in part past a bound.
    EtatVoile bavard;
    bavard.message = std::string(100000, 'm');
    const auto long_ = contenu(
        MotifVoile::appli(std::string(100000, 'n'), regle("horaire", std::string(100000, 't'))),
        bavard);
    EXPECT_LT(long_.titre.size(), 200u);
    EXPECT_LT(long_.badge.size(), 200u);
    EXPECT_LT(long_.message->size(), 500u);
}

TEST(ContenuVoile, LaLigneDeReveilSuitLaCauseEtLeJourDeLaFin) {
    test::FuseauFixe fuseau("Europe/Paris");
    const std::int64_t tard = paris(14, 23, 30);
    const std::tuple<RegleMac, std::int64_t, std::optional<std::string>> cas[] = {
        {regle("navigateur", "", paris(15, 7, 0)), 0, TextesPlateforme::navigateurIllisible()},
        {regle("automatisation"), 0, TextesPlateforme::lectureRefusee()},
        {regle("site"), 0, "Tes parents ont mis ce site en sieste."},
        {regle("limite"), 0, std::nullopt}, // no end: nothing, even for a limit
        {regle("limite", "", paris(15, 0, 0)), 0,
         "Ta limite du jour est atteinte. Il se réveille demain."},
        {regle("limite_appli", "Jeux", paris(15, 0, 0)), 0,
         "Ta limite pour cette appli est atteinte. Elle se réveille demain."},
        {regle("horaire", "Au lit", paris(14, 19, 30)), 0, "Il se réveille à 19:30"},
        {regle("horaire", "Au lit", paris(15, 7, 30)), 0, "Il se réveille demain à 07:30"},
        // 23:30 and 00:30 in Paris are the same day in UTC: the day is the local one.
        {regle("horaire", "Au lit", paris(15, 0, 30)), tard, "Il se réveille demain à 00:30"},
    };
    for (const auto& [r, maintenant, attendue] : cas) {
        EtatVoile etat;
        etat.maintenantMs = maintenant;
        EXPECT_EQ(contenu(MotifVoile::pause(r), etat).reveil, attendue) << r.cause << " " << r.fin;
    }
}

TEST(ContenuVoile, LesBoutonsSelonLeMotifLaTirelireEtLesChoix) {
    const auto pause = MotifVoile::pause(regle("limite", "", 1));
    const auto appli = MotifVoile::appli("Jeu", regle("limite_appli", "Jeux", 1));
    EtatVoile etat;

    auto c = contenu(pause, etat);
    EXPECT_EQ(actions(c.rangee), std::vector{Action::choisir});
    EXPECT_EQ(actions(contenu(appli, etat).rangee), (std::vector{Action::choisir, Action::ok}));
    EXPECT_EQ(actions(contenu(MotifVoile::appli("Firefox", regle("automatisation")), etat).suite),
              std::vector{Action::reglages});

    // The piggy bank: whole minutes of at least one, on the day's limit only.
    const auto tirelire = [&](const MotifVoile& motif, double minutes) {
        EtatVoile e;
        e.tirelireMin = minutes;
        return contenu(motif, e).suite;
    };
    EXPECT_EQ(tirelire(pause, 1.9).at(0).minutes, 1);
    for (double sansTirelire : {0.5, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_TRUE(tirelire(pause, sansTirelire).empty()) << sansTirelire;
    EXPECT_TRUE(tirelire(appli, 30).empty());
    EXPECT_TRUE(tirelire(MotifVoile::pause(regle("coupee")), 30).empty());

    // The choices: three durations, held while a request is under way; asking itself never is.
    etat.choixTemps = etat.envoi = true;
    etat.tirelireMin = 5;
    c = contenu(pause, etat);
    ASSERT_EQ(c.rangee.size(), 3u);
    EXPECT_TRUE(c.rangee[0].desactive && c.rangee[2].desactive && c.suite[0].desactive);
    etat.choixTemps = false;
    EXPECT_FALSE(contenu(pause, etat).rangee[0].desactive);
}

TEST(Lisible, DureesHeuresEtEspacesInsecables) {
    const std::pair<double, const char*> durees[] = {
        {59.9, "59 s"}, {60, "1 min"},         {61, "2 min"},       {3540, "59 min"},
        {3541, "1 h"},  {3600, "1 h"},         {3601, "1 h 01"},    {7199, "2 h"},
        {-5, "0 s"},    {std::nan(""), "0 s"}, {1e300, "100000 h"},
    };
    for (const auto& [secondes, attendue] : durees)
        EXPECT_EQ(dureeLisible(secondes), attendue) << secondes;

    test::FuseauFixe fuseau("Europe/Paris");
    EXPECT_EQ(heureLisible(paris(14, 7, 30), francais), "07:30");
    EXPECT_EQ(heureLisible(paris(14, 19, 5), QLocale(QLocale::English, QLocale::UnitedStates)),
              "7:05 PM");
    EXPECT_EQ(heureLisible(paris(14, 7, 30), QLocale::c()), "07:30");

    // No line breaks between a number and its unit, nor before double punctuation.
    const std::pair<const char*, const char*> lignes[] = {
        {"reste 1 h 05, et 3 s", "reste 1\u00a0h\u00a005, et 3\u00a0s"},
        {"pages : Paramètres › Accessibilité ?",
         "pages\u00a0: Paramètres\u00a0› Accessibilité\u00a0?"},
        {"« Autoriser »", "«\u00a0Autoriser\u00a0»"},
        {"Il se réveille à 07:30", "Il se réveille à 07:30"},
    };
    for (const auto& [texte, attendu] : lignes)
        EXPECT_EQ(sansCoupure(texte), attendu) << texte;
}

} // namespace
} // namespace tavi
