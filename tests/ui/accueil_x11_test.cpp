// The welcome window on the low screen of a small laptop (1024 x 600), on an Xvfb of the test's
// own managed by openbox, which draws the title bar and decides what the window may do.
#include "ui/bouton_pilule.h"
#include "ui/charte.h"
#include "ui/fenetre_accueil.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
// X11 last: its macros break the headers above.
#include "support/dossier_temporaire.h"
#include "support/xvfb_essai.h"

#include <X11/Xatom.h>

using namespace tavi;

namespace {

std::string affichage, raisonSaut;

struct FaussesActions : ActionsAccueil {
    bool lie = true, accord = false, zone = true;
    std::optional<Consigne> regles;
    bool relie() const override { return lie; }
    std::optional<Consigne> consigne() const override { return regles; }
    std::string prenom() const override { return "Léa"; }
    bool accordDonne() const override { return accord; }
    void consentir() override {}
    bool agentActif() const override { return true; }
    void lireEtatAgent(std::function<void()> fini) override { fini(); }
    void autoriser() override {}
    void rejoindre(const std::string&,
                   std::function<void(std::optional<std::string>)> fini) override {
        fini("Ce code n'existe pas. Vérifie-le avec tes parents.");
    }
    bool installe() const override { return true; }
    bool zoneNotification() const override { return zone; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override {
        return std::make_unique<Abonnement>();
    }
};

// WCAG 2 contrast ratio of a text colour, drawn over `b` with its transparency, and `b`.
double contraste(QColor a, const QColor& b) {
    const auto melange = [&](double t, double f) { return a.alphaF() * t + (1 - a.alphaF()) * f; };
    a = QColor::fromRgbF(melange(a.redF(), b.redF()), melange(a.greenF(), b.greenF()),
                         melange(a.blueF(), b.blueF()));
    const auto luminance = [](const QColor& c) {
        const auto lineaire = [](double v) {
            return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * lineaire(c.redF()) + 0.7152 * lineaire(c.greenF()) +
               0.0722 * lineaire(c.blueF());
    };
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

TEST(AccueilX11, LePanneauTientSurUnPetitEcranSansAgrandissement) {
    if (!raisonSaut.empty()) GTEST_SKIP() << raisonSaut;
    FaussesActions actions;
    Consigne c;
    c.rapportApplis = Interrupteur{true};
    c.historiqueSites = Interrupteur{true};
    c.filtreWeb = FiltreJSON{true, {}, {}};
    actions.regles = c;
    FenetreAccueil fenetre;
    fenetre.montrer(actions, true);
    AccueilVue& vue = *fenetre.fenetre();
    // Framed by openbox: its title bar is then part of the frame.
    ASSERT_TRUE(QTest::qWaitFor([&] { return vue.frameGeometry().height() > vue.height(); }));
    QTest::qWait(300);

    const QRect ecran = vue.screen()->availableGeometry();
    EXPECT_TRUE(ecran.contains(vue.frameGeometry()))
        << vue.frameGeometry().y() << " " << vue.frameGeometry().height();
    auto* bouton = vue.findChild<BoutonPilule*>();
    ASSERT_TRUE(bouton);
    EXPECT_TRUE(ecran.contains(QRect(bouton->mapToGlobal(QPoint()), bouton->size())));
    // What does not fit scrolls.
    auto* zone = vue.findChild<QScrollArea*>();
    ASSERT_TRUE(zone);
    EXPECT_GT(zone->verticalScrollBar()->maximum(), 0);

    // Openbox offers what the window allows: closing, never maximising.
    Display* autre = XOpenDisplay(affichage.c_str());
    ASSERT_TRUE(autre);
    Atom type;
    int format;
    unsigned long n, reste;
    unsigned char* donnees = nullptr;
    XGetWindowProperty(autre, vue.winId(), XInternAtom(autre, "_NET_WM_ALLOWED_ACTIONS", False), 0,
                       64, False, XA_ATOM, &type, &format, &n, &reste, &donnees);
    std::vector<std::string> permis;
    for (unsigned long i = 0; donnees && i < n; ++i) {
        char* nom = XGetAtomName(autre, reinterpret_cast<Atom*>(donnees)[i]);
        permis.emplace_back(nom);
        XFree(nom);
    }
    if (donnees) XFree(donnees);
    XCloseDisplay(autre);
    EXPECT_NE(std::find(permis.begin(), permis.end(), "_NET_WM_ACTION_CLOSE"), permis.end());
    for (const auto& action : permis)
        EXPECT_EQ(action.find("MAXIMIZE"), std::string::npos) << action;
}

TEST(AccueilX11, LErreurEtLExempleDeCodeSeLisentAssezContrastes) {
    if (!raisonSaut.empty()) GTEST_SKIP() << raisonSaut;
    FaussesActions actions;
    actions.lie = false;
    FenetreAccueil fenetre;
    fenetre.montrer(actions, false);
    AccueilVue& vue = *fenetre.fenetre();
    ASSERT_TRUE(vue.champCode());
    vue.champCode()->setText("abcd-2345");
    vue.envoyer();
    ASSERT_TRUE(vue.erreur());
    const QLabel* erreur = nullptr;
    for (const QLabel* l : vue.findChildren<QLabel*>())
        if (l->text().startsWith("Ce code")) erreur = l;
    ASSERT_TRUE(erreur);
    // 4.5:1, the least a text of this size needs; the card is lilac, the field white.
    EXPECT_GE(contraste(erreur->palette().color(QPalette::WindowText), Charte::lilas), 4.5);
    vue.champCode()->clear();
    EXPECT_GE(contraste(vue.champCode()->palette().color(QPalette::PlaceholderText), Charte::blanc),
              4.5);
    // The soft ink of the other texts, on every surface it is drawn on.
    for (const QColor& surface : {Charte::fond, Charte::blanc, Charte::lilas, Charte::menthe})
        EXPECT_GE(contraste(Charte::doux, surface), 4.5) << surface.name().toStdString();
}

TEST(AccueilX11, SansZoneDeNotificationLaDerniereEtapeDitLaVerite) {
    if (!raisonSaut.empty()) GTEST_SKIP() << raisonSaut;
    const auto dit = [](bool zone) {
        FaussesActions actions;
        actions.accord = true;
        actions.zone = zone;
        AccueilVue vue(actions, false);
        EXPECT_EQ(vue.etape(), EtapeAccueil::fini);
        QStringList textes;
        for (const QLabel* l : vue.findChildren<QLabel*>())
            textes << l->text();
        return textes.join(' ').remove(QChar(0x200B));
    };
    EXPECT_TRUE(dit(true).contains("zone de notification")) << dit(true).toStdString();
    EXPECT_FALSE(dit(false).contains("zone de notification"));
    EXPECT_TRUE(dit(false).contains("AppIndicator")) << dit(false).toStdString();
}

// Xvfb at 1024 x 600 with openbox, for the application to come; says why not.
std::string preparerAffichage(std::optional<test::Processus>& xvfb,
                              std::optional<test::Processus>& wm,
                              const test::DossierTemporaire& d) {
    if (access("/usr/bin/openbox", X_OK)) return "no window manager (package openbox)";
    if (auto raison = test::demarrerXvfb(xvfb, "1024x600x24", affichage); !raison.empty())
        return raison;
    std::ofstream(d / "rc.xml") << "<openbox_config xmlns=\"http://openbox.org/3.4/rc\">"
                                   "<focus><focusNew>yes</focusNew></focus></openbox_config>";
    wm.emplace(std::vector<std::string>{"/usr/bin/openbox", "--sm-disable", "--config-file",
                                        (d / "rc.xml").string()},
               std::map<std::string, std::string>{{"DISPLAY", affichage}});
    // Openbox takes the screen's selection once it manages windows.
    Display* autre = XOpenDisplay(affichage.c_str());
    if (!autre) return "Xvfb did not start";
    const Atom selection = XInternAtom(autre, "WM_S0", False);
    bool pret = false;
    for (int i = 0; i < 100 && !pret; ++i, usleep(50000))
        pret = XGetSelectionOwner(autre, selection) != None;
    XCloseDisplay(autre);
    return pret ? "" : "openbox did not start";
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::optional<test::Processus> xvfb, wm;
    test::DossierTemporaire dossier;
    std::optional<QApplication> application;
    raisonSaut = preparerAffichage(xvfb, wm, dossier);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    if (raisonSaut.empty()) application.emplace(argc, argv);
    return RUN_ALL_TESTS();
}
