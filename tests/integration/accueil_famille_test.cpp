#include "agent_et_famille.h"
#include "support/application_qt.h"
#include "ui/accueil_moteur.h"
#include "ui/accueil_vue.h"
#include "ui/actions_figees.h"
#include "ui/bouton_pilule.h"
#include "ui/voile_vue.h"

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <gtest/gtest.h>
#include <set>

namespace tavi {
namespace {

using std::chrono::seconds;

BoutonPilule* bouton(QWidget& dans, const QString& titre) {
    for (auto* b : dans.findChildren<BoutonPilule*>())
        if (b->isVisible() && b->text().contains(titre)) return b;
    return nullptr;
}

bool afficheTexte(QWidget& dans, const QString& texte) {
    for (auto* l : dans.findChildren<QLabel*>())
        if (l->isVisible() && l->text().contains(texte)) return true;
    return false;
}

// The welcome window on the engine as the agent runs it, unpaired.
class AccueilEtFamille : public test::AgentEtFamille {
protected:
    void SetUp() override {
        AgentEtFamille::SetUp();
        if (!HasFatalFailure()) actions = std::make_unique<AccueilMoteur>(moteur());
    }
    void TearDown() override {
        actions.reset();
        AgentEtFamille::TearDown();
    }

    std::unique_ptr<AccueilMoteur> actions;
};

TEST_F(AccueilEtFamille, UnCodeTapeAuClavierRelieLOrdinateurEtLaFenetreVaJusquAuBout) {
    AccueilVue vue(*actions, false);
    vue.show();
    ASSERT_EQ(vue.etape(), EtapeAccueil::rejoindre);
    QLineEdit* champ = vue.champCode();
    ASSERT_NE(champ, nullptr);
    // Run from the build folder, not from where a package installs it.
    EXPECT_TRUE(afficheTexte(vue, "Conseil"));

    // A refused code stays in the field with the server's reason under it.
    QTest::keyClicks(champ, "zzzz-9999");
    QTest::keyClick(champ, Qt::Key_Return);
    EXPECT_FALSE(vue.boutonRejoindre()->isEnabled());
    ASSERT_TRUE(test::attendreQue([&] { return !vue.envoi(); }, seconds(20)));
    ASSERT_TRUE(vue.erreur().has_value());
    EXPECT_TRUE(afficheTexte(vue, QString::fromStdString(*vue.erreur())));
    EXPECT_EQ(champ->text(), "zzzz-9999");
    EXPECT_FALSE(moteur().relie());

    // The parents' code, typed in lower case with a dash between its halves.
    QString code = QString::fromStdString(famille.code()).toLower();
    code.insert(code.size() / 2, '-');
    champ->clear();
    QTest::keyClicks(champ, code);
    QTest::mouseClick(vue.boutonRejoindre(), Qt::LeftButton);
    ASSERT_TRUE(test::attendreQue([&] { return vue.etape() == EtapeAccueil::accord; }, seconds(20)))
        << (vue.erreur() ? *vue.erreur() : "");
    EXPECT_TRUE(moteur().relie());
    ASSERT_TRUE(test::attendreQue([&] { return moteur().consigne().has_value(); }));

    // What the parents see, acknowledged: recorded, so the engine stops asking. Then the login
    // agent, which the pairing registered and the child removed meanwhile.
    demarrage.desenregistrer();
    // A new step shows once the loop runs: its buttons are looked for until they are on screen.
    BoutonPilule* compris = nullptr;
    ASSERT_TRUE(test::attendreQue([&] { return (compris = bouton(vue, "J'ai compris")); }));
    QTest::mouseClick(compris, Qt::LeftButton);
    EXPECT_TRUE(moteur().accordDonne());
    ASSERT_TRUE(
        test::attendreQue([&] { return vue.etape() == EtapeAccueil::demarrage; }, seconds(6)));
    BoutonPilule* autoriser = nullptr;
    ASSERT_TRUE(test::attendreQue([&] { return (autoriser = bouton(vue, "Paramètres")); }));
    QTest::mouseClick(autoriser, Qt::LeftButton);
    // The window moves on by itself once the agent is registered.
    ASSERT_TRUE(test::attendreQue([&] { return vue.etape() == EtapeAccueil::fini; }, seconds(6)));
    EXPECT_TRUE(demarrage.actif());
    ASSERT_TRUE(test::attendreQue([&] { return afficheTexte(vue, "C'est prêt, Léa"); }));
}

// Every control a window holds, reached with Tab from the first, each with a name a screen
// reader can say.
void chaqueControleAuClavier(QWidget& fenetre) {
    fenetre.show();
    QApplication::setActiveWindow(&fenetre);
    ASSERT_TRUE(QTest::qWaitForWindowActive(&fenetre));
    std::set<QWidget*> attendus;
    for (QWidget* w : fenetre.findChildren<QWidget*>())
        if (w->isVisible() && w->isEnabled() &&
            (qobject_cast<QAbstractButton*>(w) || qobject_cast<QLineEdit*>(w)))
            attendus.insert(w);
    ASSERT_FALSE(attendus.empty());
    std::set<QWidget*> atteints;
    for (std::size_t i = 0; i < 2 * attendus.size() + 2; ++i) {
        if (QWidget* w = QApplication::focusWidget()) atteints.insert(w);
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &fenetre,
                        Qt::Key_Tab);
    }
    for (QWidget* w : attendus) {
        EXPECT_TRUE(atteints.count(w)) << w->metaObject()->className();
        QAccessibleInterface* a = QAccessible::queryAccessibleInterface(w);
        ASSERT_NE(a, nullptr);
        EXPECT_FALSE(a->text(QAccessible::Name).trimmed().isEmpty())
            << w->metaObject()->className();
    }
}

// Not paired, and every pairing request kept without an answer.
class AccueilFixe : public ActionsAccueil {
public:
    std::vector<std::string> codes;

    bool relie() const override { return false; }
    std::optional<Consigne> consigne() const override { return std::nullopt; }
    std::string prenom() const override { return {}; }
    bool accordDonne() const override { return false; }
    void consentir() override {}
    bool agentActif() const override { return false; }
    void lireEtatAgent(std::function<void()>) override {}
    void autoriser() override {}
    void rejoindre(const std::string& code,
                   std::function<void(std::optional<std::string>)>) override {
        codes.push_back(code);
    }
    bool installe() const override { return true; }
    bool zoneNotification() const override { return true; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override { return nullptr; }
};

TEST(Accueil, UnCodeTropCourtNePartPasEtUnSeulEnvoiALaFois) {
    AccueilFixe accueil;
    AccueilVue vue(accueil, false);
    EXPECT_FALSE(afficheTexte(vue, "Conseil")); // run from where a package installs it
    QTest::keyClicks(vue.champCode(), "abc-2345");
    QTest::keyClick(vue.champCode(), Qt::Key_Return);
    EXPECT_TRUE(accueil.codes.empty());
    QTest::keyClicks(vue.champCode(), "6");
    QTest::keyClick(vue.champCode(), Qt::Key_Return);
    QTest::keyClick(vue.champCode(), Qt::Key_Return);
    vue.envoyer();
    EXPECT_EQ(accueil.codes, std::vector<std::string>{"ABC23456"});
}

TEST(Accessibilite, LaFenetreDAccueilEtLeVoileSeParcourentAuClavier) {
    AccueilFixe accueil;
    AccueilVue vue(accueil, false);
    chaqueControleAuClavier(vue);

    EtatVoile etat;
    etat.tirelireMin = 20;
    ActionsFigees figees(etat);
    RegleMac limite;
    limite.bloquerTout = true;
    limite.cause = "limite";
    VoileVue voile(figees, MotifVoile::pause(limite));
    voile.ouvrirChoix();
    chaqueControleAuClavier(voile);
}

} // namespace
} // namespace tavi
