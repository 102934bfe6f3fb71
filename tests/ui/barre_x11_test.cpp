// The status item on an Xvfb of the test's own, with trayer as the XEmbed tray host (no session
// bus, so Qt has no notifier host to prefer). A second X client clicks through XTest. The
// screen is a small laptop's (1024 x 600), where the welcome window must fit too.
#include "fausses_notifications.h"
#include "ui/barre.h"
#include "ui/bouton_pilule.h"
#include "ui/charte.h"
#include "ui/fenetre_accueil.h"
#include "ui/icone_barre.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>
#include <QWindow>
#include <cmath>
#include <gtest/gtest.h>
#include <optional>
// X11 last: its macros break the headers above.
#include "support/xvfb_essai.h"

using namespace tavi;

namespace {

std::string affichage, raisonSaut;
const char* const trayer = "/usr/bin/trayer";

template <typename Condition>
bool attendreQue(Condition condition, int ms = 10000) {
    return QTest::qWaitFor([&] { return bool(condition()); }, ms);
}

struct FaussesActions : ActionsBarre {
    EtatBarre etat;
    std::function<void()> quand, fini;
    std::vector<int> demandes;
    bool voile = false;

    EtatBarre etatBarre() const override { return etat; }
    std::unique_ptr<Abonnement> observer(std::function<void()> q) override {
        quand = std::move(q);
        return std::make_unique<Abonnement>();
    }
    void demanderTemps(int minutes, std::function<void()> f) override {
        demandes.push_back(minutes);
        fini = std::move(f);
    }
    void utiliserTirelire(int, std::function<void()>) override {}
    bool voileAffiche() const override { return voile; }
    void reglages() override {}
};

class BarreX11 : public testing::Test {
protected:
    void SetUp() override {
        if (!raisonSaut.empty()) GTEST_SKIP() << raisonSaut;
        autre = XOpenDisplay(affichage.c_str());
        ASSERT_TRUE(autre);
    }
    void TearDown() override {
        if (autre) XCloseDisplay(autre);
    }
    void demarrerHote() {
        hote.emplace(std::vector<std::string>{trayer, "--edge", "top", "--align", "right",
                                              "--widthtype", "request", "--height", "24"},
                     std::map<std::string, std::string>{{"DISPLAY", affichage}});
        const Atom selection = XInternAtom(autre, "_NET_SYSTEM_TRAY_S0", False);
        ASSERT_TRUE(attendreQue([&] { return XGetSelectionOwner(autre, selection) != None; }));
    }
    // In the tray, placed and drawn: Qt's XEmbed icon is a window of its own that the tray
    // exposes once it has taken it in.
    static bool incrustee(Barre& barre) {
        if (!barre.icone().isVisible() || barre.icone().geometry().isEmpty()) return false;
        for (QWidget* w : QApplication::topLevelWidgets())
            if (w->objectName() == "QSystemTrayIconSys" && w->windowHandle() &&
                w->windowHandle()->isExposed())
                return true;
        return false;
    }
    // A real click of the X server's pointer on the middle of `zone`.
    void cliquer(QRect zone) { test::cliquerX(autre, zone.center()); }
    void cliquer(QMenu& menu, const QString& debut) {
        for (QAction* action : menu.actions())
            if (action->text().startsWith(debut)) {
                const QRect ligne = menu.actionGeometry(action);
                return cliquer(QRect(menu.mapToGlobal(ligne.topLeft()), ligne.size()));
            }
        ADD_FAILURE() << "no entry " << debut.toStdString();
    }
    // The menu on screen says what the model says, entry for entry.
    void commeLeModele(const QMenu& menu) {
        std::vector<std::string> vus, attendus;
        for (QAction* action : menu.actions())
            if (!action->isSeparator()) vus.push_back(action->text().toStdString());
        for (const EntreeMenu& e : menuBarre(actions.etat))
            if (!e.separateur()) attendus.push_back(e.titre);
        EXPECT_EQ(vus, attendus);
    }

    Display* autre = nullptr;
    std::optional<test::Processus> hote;
    FaussesActions actions;
};

TEST_F(BarreX11, SansZoneDeNotificationLaBarreLeDitUneFoisRedessineSeulementCeQuiChangeEtAttend) {
    testing::internal::CaptureStderr();
    Barre barre(actions);
    QTest::qWait(200);
    const std::string journal = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), '\n'), 1) << journal;
    EXPECT_NE(journal.find("zone de notification"), std::string::npos) << journal;
    EXPECT_FALSE(incrustee(barre));

    // The icon is drawn again only when it changes.
    const int dessins = barre.dessins();
    barre.maj();
    actions.quand();
    EXPECT_EQ(barre.dessins(), dessins);
    actions.etat.relie = true;
    actions.etat.resteSecondes = 2700;
    actions.quand();
    EXPECT_EQ(barre.dessins(), dessins + 1);
    EXPECT_EQ(barre.icone().toolTip(), QStringLiteral("Tavi Home · 45 min"));

    demarrerHote();
    EXPECT_TRUE(attendreQue([&] { return incrustee(barre); }, 25000));
}

TEST_F(BarreX11, UnClicOuvreLeMenuDuMomentEtSesEntreesMenentAuxOperations) {
    demarrerHote();
    test::FaussesNotifications notifications;
    notifications.serveur = false;
    Barre barre(actions, &notifications);
    int accueils = 0;
    barre.ouvrirAccueil = [&] { ++accueils; };
    ASSERT_TRUE(attendreQue([&] { return incrustee(barre); }));
    cliquer(barre.icone().geometry());
    ASSERT_TRUE(attendreQue([&] { return barre.menu().isVisible(); }));
    commeLeModele(barre.menu());
    cliquer(barre.menu(), "Relier");
    EXPECT_TRUE(attendreQue([&] { return accueils == 1; }));

    actions.etat.relie = true;
    actions.etat.prenom = "Léa";
    actions.etat.version = "1.0.0";
    actions.etat.resteSecondes = 2700;
    ASSERT_TRUE(attendreQue([&] { return !barre.menu().isVisible(); }));
    cliquer(barre.icone().geometry());
    ASSERT_TRUE(attendreQue([&] { return barre.menu().isVisible(); }));
    commeLeModele(barre.menu());

    cliquer(barre.menu(), QStringLiteral("🙋"));
    QMenu* demander = barre.menu().findChild<QMenu*>(); // the only submenu without a piggy bank
    ASSERT_TRUE(demander);
    ASSERT_TRUE(attendreQue([&] { return demander->isVisible(); }));
    cliquer(*demander, "15");
    ASSERT_TRUE(attendreQue([&] { return !actions.demandes.empty(); }));
    EXPECT_EQ(actions.demandes, std::vector{15});

    // The outcome, once the request is over, in a box that leaves the main loop running where
    // the session has no notification server; where it has one, by a notification.
    actions.etat.message = "Ta demande est envoyée à tes parents.";
    actions.fini();
    ASSERT_TRUE(barre.boiteMessage());
    EXPECT_TRUE(attendreQue([&] { return barre.boiteMessage()->isVisible(); }));
    EXPECT_FALSE(barre.boiteMessage()->isModal());
    EXPECT_EQ(barre.boiteMessage()->text().toStdString(), *actions.etat.message);
    QMessageBox* boite = barre.boiteMessage();
    barre.informer();
    EXPECT_EQ(barre.boiteMessage(), boite);
    notifications.serveur = true;
    actions.etat.message = "C'est fait.";
    barre.informer();
    ASSERT_EQ(notifications.envoyees.size(), 1u);
    EXPECT_EQ(notifications.envoyees[0].texte, "C'est fait.");
    EXPECT_NE(barre.boiteMessage()->text(), "C'est fait.");
}

TEST(IconeBarre, LeBadgeALaTailleEtLaDensiteDemandeesEtMontreLeTempsRestant) {
    const IconeBarre sablier{IconeBarre::Symbole::sablier, "45 min"};
    const QImage image = dessinerIconeBarre(sablier, 22, 2);
    EXPECT_EQ(image.size(), QSize(44, 44));
    EXPECT_EQ(image.devicePixelRatio(), 2);
    EXPECT_NE(image, dessinerIconeBarre({IconeBarre::Symbole::sablier, "46 min"}, 22, 2));
}

struct FauxAccueil : ActionsAccueil {
    bool lie = true, accord = false, zone = true;
    bool relie() const override { return lie; }
    std::optional<Consigne> consigne() const override {
        Consigne c; // every report on: the tallest panel
        c.rapportApplis = c.historiqueSites = Interrupteur{true};
        return c;
    }
    std::string prenom() const override { return "Léa"; }
    bool accordDonne() const override { return accord; }
    void consentir() override {}
    bool agentActif() const override { return true; }
    void lireEtatAgent(std::function<void()>) override {}
    void autoriser() override {}
    void rejoindre(const std::string&, std::function<void(std::optional<std::string>)> f) override {
        f("Ce code n'existe pas.");
    }
    bool installe() const override { return true; }
    bool zoneNotification() const override { return zone; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override { return nullptr; }
};

// WCAG 2 contrast of a text colour, laid with its transparency over `f`, and `f`.
double contraste(const QColor& t, const QColor& f) {
    double lt = 0, lf = 0;
    const double poids[] = {0.2126, 0.7152, 0.0722};
    const double ct[] = {t.redF(), t.greenF(), t.blueF()}, cf[] = {f.redF(), f.greenF(), f.blueF()};
    for (int i = 0; i < 3; ++i)
        for (auto [v, l] :
             {std::pair<double, double*>{t.alphaF() * ct[i] + (1 - t.alphaF()) * cf[i], &lt},
              {cf[i], &lf}})
            *l += poids[i] * (v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4));
    return (std::max(lt, lf) + 0.05) / (std::min(lt, lf) + 0.05);
}

TEST(AccueilX11, LePanneauTientSurLEcranBasSansAgrandirSesTextesSeLisentLaFinDitVrai) {
    if (!raisonSaut.empty()) GTEST_SKIP() << raisonSaut;
    FauxAccueil actions;
    FenetreAccueil fenetre;
    fenetre.montrer(actions, true);
    AccueilVue& vue = *fenetre.fenetre();
    ASSERT_TRUE(attendreQue([&] { return vue.isVisible(); }));
    const QRect ecran = vue.screen()->availableGeometry();
    // Room is kept for a title bar; what does not fit scrolls, the button stays in view.
    EXPECT_TRUE(ecran.contains(vue.geometry()));
    EXPECT_LE(vue.height() + 40, ecran.height());
    auto* bouton = vue.findChild<BoutonPilule*>();
    EXPECT_TRUE(ecran.contains(QRect(bouton->mapToGlobal(QPoint()), bouton->size())));
    EXPECT_GT(vue.findChild<QScrollArea*>()->verticalScrollBar()->maximum(), 0);
    // A fixed size: window managers then offer no maximise.
    EXPECT_EQ(vue.minimumSize(), vue.maximumSize());

    // 4.5:1 at least: the error on the lilac card, the code's example in its white field.
    actions.lie = false;
    fenetre.montrer(actions, false);
    fenetre.fenetre()->champCode()->setText("abcd-2345");
    fenetre.fenetre()->envoyer();
    const QLabel* erreur = nullptr;
    for (const QLabel* l : fenetre.fenetre()->findChildren<QLabel*>())
        if (l->text().startsWith("Ce code")) erreur = l;
    ASSERT_TRUE(erreur);
    EXPECT_GE(contraste(erreur->palette().color(QPalette::WindowText), Charte::lilas), 4.5);
    const QLineEdit* champ = fenetre.fenetre()->champCode();
    EXPECT_GE(contraste(champ->palette().color(QPalette::PlaceholderText), Charte::blanc), 4.5);

    // The last step sends the child to the icon only where the desktop shows one.
    actions.lie = actions.accord = true;
    for (const bool zone : {true, false}) {
        actions.zone = zone;
        fenetre.montrer(actions, false);
        QString textes;
        for (const QLabel* l : fenetre.fenetre()->findChildren<QLabel*>())
            textes += l->text().remove(QChar(0x200B));
        EXPECT_EQ(textes.contains("zone de notification"), zone);
        EXPECT_EQ(textes.contains("AppIndicator"), !zone);
    }
}

// Starts the display, without a tray host yet, for the application to come; says why not.
std::string preparerAffichage(std::optional<test::Processus>& xvfb) {
    if (access(trayer, X_OK)) return "no XEmbed tray host (package trayer)";
    if (auto raison = test::demarrerXvfb(xvfb, "1024x600x24", affichage); !raison.empty())
        return raison;
    // No session bus, and none started on demand: the icon goes to the XEmbed tray.
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    return {};
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::optional<test::Processus> xvfb;
    std::optional<QApplication> application;
    raisonSaut = preparerAffichage(xvfb);
    if (raisonSaut.empty()) application.emplace(argc, argv);
    return RUN_ALL_TESTS();
}
