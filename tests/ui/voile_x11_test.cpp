// The veil on an Xvfb of the test's own, split into two monitors (A and B) by xrandr before the
// QApplication starts. A second X client plays another program: it tries to grab the keyboard
// and pointer, unmaps the veil, and clicks through XTest.
#include "platform/linux/garde_x11.h"
#include "platform/linux/prise_x11.h"
#include "platform/qt/boucle_qt.h"
#include "ui/bouton_pilule.h"
#include "ui/fenetre_voile.h"
#include "ui/voile_qt.h"

#include <QApplication>
#include <QScreen>
#include <QTest>
#include <QWindow>
#include <gtest/gtest.h>
#include <optional>
// X11 last: its macros break the headers above.
#include "support/xvfb_essai.h"

using namespace tavi;

namespace {

std::string affichage, raisonSaut;
const std::string moniteurB = "1280/339x1024/271+1366+0";

template <typename Condition>
bool attendreQue(Condition condition, int limiteMs = 10000) {
    return QTest::qWaitFor([&] { return bool(condition()); }, limiteMs);
}

QStringList nomsDesEcrans() {
    QStringList noms;
    for (QScreen* ecran : QGuiApplication::screens())
        noms << ecran->name();
    noms.sort();
    return noms;
}

void xrandr(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/usr/bin/xrandr");
    test::executer(arguments, "", {{"DISPLAY", affichage}});
}

struct FaussesActions : ActionsVoile {
    std::vector<int> demandes, tirelires;
    int fermetures = 0;
    std::function<void()> fini;

    EtatVoile etat() const override {
        EtatVoile etat;
        etat.tirelireMin = 12.4;
        return etat;
    }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override {
        return std::make_unique<Abonnement>();
    }
    void demanderTemps(int minutes, std::function<void()> f) override {
        demandes.push_back(minutes);
        fini = std::move(f);
    }
    void utiliserTirelire(int minutes, std::function<void()> f) override {
        tirelires.push_back(minutes);
        fini = std::move(f);
    }
    void fermerVoileAppli() override { ++fermetures; }
    void ouvrirReglages() override {}
};

MotifVoile pause(std::int64_t fin = 4'000'000'000'000) {
    return MotifVoile::pause({true, {}, {}, "limite", "Limite du jour", fin});
}

class VoileX11 : public testing::Test {
protected:
    void SetUp() override {
        if (!raisonSaut.empty()) GTEST_SKIP() << raisonSaut;
        autre = XOpenDisplay(affichage.c_str());
        ASSERT_TRUE(autre);
    }
    void TearDown() override {
        if (!autre) return;
        XCloseDisplay(autre);
        // The monitors as the next case expects them.
        if (nomsDesEcrans() != QStringList{"A", "B"}) {
            xrandr({"--setmonitor", "B", moniteurB, "none"});
            xrandr({"--delmonitor", "C"});
            attendreQue([] { return nomsDesEcrans() == QStringList{"A", "B"}; });
        }
    }

    VoileQt& voile(bool prise = true, bool garde = false) {
        auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        voile_.emplace(std::move(actionsPropres),
                       prise ? std::make_unique<PriseX11>(x11->connection()) : nullptr,
                       garde ? GardeX11::ouvrir(boucle, x11->display()) : nullptr);
        voile_->signaler = [this](const std::string& nature, const std::string& detail) {
            signaux.emplace_back(nature, detail);
        };
        return *voile_;
    }
    bool exposees() {
        for (FenetreVoile* f : voile_->fenetres())
            if (!f->windowHandle() || !f->windowHandle()->isExposed()) return false;
        return true;
    }
    // One window per screen, over all of it, left alone by any window manager.
    bool couvreLesEcrans() {
        QList<QScreen*> restants = QGuiApplication::screens();
        for (FenetreVoile* f : voile_->fenetres()) {
            XWindowAttributes a{};
            XGetWindowAttributes(autre, f->winId(), &a);
            // A live screen, not yet covered, before its geometry is read.
            if (!restants.removeOne(f->ecran()) ||
                QRect(a.x, a.y, a.width, a.height) != f->ecran()->geometry() ||
                !a.override_redirect || a.map_state != IsViewable)
                return false;
        }
        return restants.isEmpty() && exposees();
    }
    // What another program gets when it tries to grab the keyboard, then the pointer.
    std::pair<int, int> saisir() {
        const Window racine = DefaultRootWindow(autre);
        const std::pair statuts{
            XGrabKeyboard(autre, racine, False, GrabModeAsync, GrabModeAsync, CurrentTime),
            XGrabPointer(autre, racine, False, ButtonPressMask, GrabModeAsync, GrabModeAsync, None,
                         None, CurrentTime)};
        XUngrabKeyboard(autre, CurrentTime);
        XUngrabPointer(autre, CurrentTime);
        XSync(autre, False);
        return statuts;
    }
    // The visible button of `fenetre` whose title holds `mot`.
    static BoutonPilule* bouton(FenetreVoile* fenetre, const QString& mot) {
        for (auto* b : fenetre->findChildren<BoutonPilule*>())
            if (b->isVisible() && b->text().contains(mot)) return b;
        return nullptr;
    }
    // A real click of the X server's pointer on the middle of `b`.
    void cliquer(QWidget* b) {
        ASSERT_TRUE(b) << "no such button";
        test::cliquerX(autre, b->mapToGlobal(b->rect().center()));
    }

    Display* autre = nullptr;
    BoucleQt boucle;
    std::vector<std::pair<std::string, std::string>> signaux;
    std::unique_ptr<FaussesActions> actionsPropres = std::make_unique<FaussesActions>();
    FaussesActions* actions = actionsPropres.get();
    std::optional<VoileQt> voile_;
};

TEST_F(VoileX11, UneFenetreParEcranMemeQuandLesEcransChangentRefaitesPourUnAutreMotif) {
    VoileQt& v = voile(false);
    v.montrer(pause());
    const auto avant = v.fenetres();
    v.montrer(pause());
    EXPECT_EQ(v.fenetres(), avant);
    ASSERT_TRUE(attendreQue([&] { return couvreLesEcrans(); }));

    xrandr({"--setmonitor", "C", "1024/271x768/203+1366+0", "none"});
    ASSERT_TRUE(attendreQue([&] { return nomsDesEcrans() == QStringList{"A", "B", "C"}; }));
    ASSERT_TRUE(attendreQue([&] { return couvreLesEcrans(); }));
    xrandr({"--delmonitor", "B"});
    ASSERT_TRUE(attendreQue([&] { return nomsDesEcrans() == QStringList{"A", "C"}; }));
    ASSERT_TRUE(attendreQue([&] { return couvreLesEcrans(); }));

    // A window gone behind the controller's back is made again at the next keeping.
    delete v.fenetres().back();
    v.maintenir();
    EXPECT_TRUE(attendreQue([&] { return couvreLesEcrans(); }));

    const FenetreVoile* ancienne = v.fenetres().front();
    v.montrer(pause(4'000'000'060'000));
    EXPECT_NE(v.fenetres().front(), ancienne);
}

TEST_F(VoileX11, UnePauseTientClavierEtPointeurJusquAuRetraitEtLesReprendSiOnLesLache) {
    VoileQt& v = voile(true, true);
    v.montrer(pause());
    ASSERT_TRUE(attendreQue([&] { return exposees(); }));
    v.maintenir();
    EXPECT_TRUE(v.prisTenue());
    EXPECT_EQ(saisir(), std::pair(AlreadyGrabbed, AlreadyGrabbed));

    // Unmapped by another program, which drops the grab: mapped again and held at once.
    XUnmapWindow(autre, v.fenetres().front()->winId());
    XSync(autre, False);
    EXPECT_TRUE(
        attendreQue([&] { return couvreLesEcrans() && saisir().first == AlreadyGrabbed; }, 1000));

    // The other screen's window still gets the clicks.
    cliquer(bouton(v.fenetres().at(1), "Demander"));
    EXPECT_TRUE(attendreQue([&] { return v.fenetres()[1]->vue().contenu().question.has_value(); }));

    v.definirMotif(std::nullopt);
    v.retirerFenetres();
    v.presenter(Presentation::normale);
    EXPECT_FALSE(v.prisTenue());
    EXPECT_EQ(saisir(), std::pair(GrabSuccess, GrabSuccess));

    // Another program holding the keyboard: the grab is taken once it lets go, and the parents
    // hear once of a refusal that lasts past 5 s.
    ASSERT_EQ(XGrabKeyboard(autre, DefaultRootWindow(autre), False, GrabModeAsync, GrabModeAsync,
                            CurrentTime),
              GrabSuccess);
    v.montrer(pause());
    ASSERT_TRUE(attendreQue([&] { return exposees(); }));
    v.maintenir();
    EXPECT_FALSE(v.prisTenue());
    for (int tic = 0; tic < 7; ++tic)
        QTest::qWait(1000), v.maintenir();
    EXPECT_EQ(signaux.at(0).first + " " + signaux.at(0).second, "voile_repare démappé");
    EXPECT_EQ(signaux.at(1).first, "saisie_refusee");
    EXPECT_EQ(signaux.size(), 2u) << "once per refusal";
    XUngrabKeyboard(autre, CurrentTime);
    XSync(autre, False);
    v.maintenir();
    EXPECT_TRUE(v.prisTenue());
    EXPECT_EQ(saisir().first, AlreadyGrabbed);
}

TEST_F(VoileX11, LesBoutonsMenentAuxOperationsEtLaSiesteDUneAppliLaisseLeBureau) {
    VoileQt& v = voile();
    v.montrer(pause());
    ASSERT_TRUE(attendreQue([&] { return exposees(); }));
    FenetreVoile* f = v.fenetres().front();

    cliquer(bouton(f, "Demander"));
    ASSERT_TRUE(attendreQue([&] { return bouton(f, "15"); }));
    cliquer(bouton(f, "15"));
    ASSERT_TRUE(attendreQue([&] { return !actions->demandes.empty(); }));
    EXPECT_EQ(actions->demandes, std::vector{15});
    ASSERT_TRUE(attendreQue([&] { return bouton(f, "10") && bouton(f, "tirelire"); }));
    for (const char* mot : {"10", "15", "30", "tirelire"})
        EXPECT_FALSE(bouton(f, mot)->isEnabled()) << mot;
    actions->fini();
    ASSERT_TRUE(attendreQue([&] { return bouton(f, "Demander") && bouton(f, "tirelire"); }));
    EXPECT_FALSE(bouton(f, "15"));

    cliquer(bouton(f, "tirelire"));
    EXPECT_TRUE(attendreQue([&] { return actions->tirelires == std::vector{12}; }));

    // Neither Escape nor the window manager's close takes a veil away.
    QTest::keyClick(f, Qt::Key_Escape);
    EXPECT_FALSE(f->close());
    EXPECT_TRUE(f->isVisible());

    // An application's nap leaves the keyboard and pointer to the desktop.
    v.montrer(MotifVoile::appli("Jeu", pause().regle));
    ASSERT_TRUE(attendreQue([&] { return exposees(); }));
    EXPECT_FALSE(v.prisTenue());
    EXPECT_EQ(saisir(), std::pair(GrabSuccess, GrabSuccess));
    cliquer(bouton(v.fenetres().front(), "OK"));
    EXPECT_TRUE(attendreQue([&] { return actions->fermetures == 1; }));
}

// Starts the display, split into two monitors, for the application to come; says why not.
std::string preparerAffichage(std::optional<test::Processus>& xvfb) {
    if (access("/usr/bin/xrandr", X_OK)) return "xrandr missing (package x11-xserver-utils)";
    // Kept when the last client leaves: the monitors would go with the last xrandr.
    if (auto raison = test::demarrerXvfb(xvfb, "2646x1024x24", affichage); !raison.empty())
        return raison;
    xrandr({"--setmonitor", "*A", "1366/361x768/203+0+0", "screen"});
    xrandr({"--setmonitor", "B", moniteurB, "none"});
    return {};
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::optional<test::Processus> xvfb;
    std::optional<QApplication> application;
    raisonSaut = preparerAffichage(xvfb);
    if (raisonSaut.empty()) {
        application.emplace(argc, argv);
        if (QGuiApplication::screens().size() != 2) raisonSaut = "Qt does not see two screens";
    }
    return RUN_ALL_TESTS();
}
