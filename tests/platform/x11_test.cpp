// The X11 desktop and screen against a real X server: an Xvfb of the test's own on a free
// display number, managed by openbox. The test's windows come from a connection of its own and
// claim whatever pid and class each case needs.
#include "platform/linux/bureau_x11.h"
#include "platform/linux/ecran_x11.h"
#include "platform/linux/index_entrees.h"
#include "platform/qt/boucle_qt.h"
#include "support/application_qt.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <ctime>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <pwd.h>
#include <thread>
#include <unistd.h>
// X11 last: its macros break the headers above.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

using namespace tavi;
using namespace std::chrono_literals;
using test::attendreQue;

namespace {

class X11 : public testing::Test {
protected:
    void SetUp() override {
        xvfb.emplace(std::vector<std::string>{"/usr/bin/Xvfb", "-displayfd", "1", "-nolisten",
                                              "tcp", "-screen", "0", "800x600x24"});
        nom = ":" + xvfb->ligne(20);
        client = XOpenDisplay(nom.c_str());
        if (!client) GTEST_SKIP() << "Xvfb (package xvfb) did not start";
        std::ofstream(dossier / "rc.xml")
            << "<openbox_config xmlns=\"http://openbox.org/3.4/rc\">"
               "<focus><focusNew>yes</focusNew></focus></openbox_config>";
        wm.emplace(std::vector<std::string>{"/usr/bin/openbox", "--sm-disable", "--config-file",
                                            (dossier / "rc.xml").string()},
                   std::map<std::string, std::string>{{"DISPLAY", nom}});
        // Openbox names itself before it listens: a window mapped in between is never managed.
        const Window essai = XCreateSimpleWindow(client, racine(), 0, 0, 10, 10, 0, 0, 0);
        if (!attendreQue([&] {
                XUnmapWindow(client, essai);
                XMapWindow(client, essai);
                XSync(client, False);
                return attendreQue([&] { return gere(essai); }, 300ms);
            }))
            GTEST_SKIP() << "openbox (package openbox) does not manage windows";
        XDestroyWindow(client, essai);
        attendreQue([&] { return !gere(essai); });
        affichage = AffichageX11::ouvrir(boucle, nom);
        ASSERT_TRUE(affichage);
    }
    void TearDown() override {
        if (client) XCloseDisplay(client);
    }

    Window racine() { return DefaultRootWindow(client); }
    Atom atome(const char* n) { return XInternAtom(client, n, False); }
    std::vector<long> mots(Window w, const char* propriete) {
        Atom t;
        int f;
        unsigned long n, reste;
        unsigned char* d = nullptr;
        XGetWindowProperty(client, w, atome(propriete), 0, 64, False, AnyPropertyType, &t, &f, &n,
                           &reste, &d);
        std::vector<long> lus;
        if (d && f == 32) lus.assign(reinterpret_cast<long*>(d), reinterpret_cast<long*>(d) + n);
        if (d) XFree(d);
        return lus;
    }
    void fixer(Window w, const char* propriete, Atom type, int format, const void* donnees, int n) {
        XChangeProperty(client, w, atome(propriete), type, format, PropModeReplace,
                        static_cast<const unsigned char*>(donnees), n);
        XSync(client, False);
    }
    // A managed window claiming `pid` and WM_CLASS `classe`.
    Window fenetre(long pid, const std::string& classe) {
        const Window w = XCreateSimpleWindow(client, racine(), 0, 0, 100, 100, 0, 0, 0);
        fixer(w, "_NET_WM_PID", XA_CARDINAL, 32, &pid, 1);
        const std::string wmClass = classe + '\0' + classe + '\0';
        fixer(w, "WM_CLASS", XA_STRING, 8, wmClass.data(), static_cast<int>(wmClass.size()));
        XMapWindow(client, w);
        XSync(client, False);
        attendreQue([&] { return gere(w); });
        return w;
    }
    bool gere(Window w) {
        const auto liste = mots(racine(), "_NET_CLIENT_LIST");
        return std::find(liste.begin(), liste.end(), static_cast<long>(w)) != liste.end();
    }
    // Asks the manager as a pager would, and waits until it obeyed.
    bool activer(Window w, bool attendre = true) {
        XEvent e{};
        e.xclient = {ClientMessage, 0, True, client, w, atome("_NET_ACTIVE_WINDOW"), 32, {}};
        e.xclient.data.l[0] = 2;
        XSendEvent(client, racine(), False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
        XSync(client, False);
        return !attendre || attendreQue([&] {
            return mots(racine(), "_NET_ACTIVE_WINDOW") == std::vector{long(w)};
        });
    }

    // Application "org.exemple.Jeu" for any window of class "Jeu"; no other is known.
    static std::optional<IdentiteAppli> resoudre(const IndicesFenetre& indices) {
        if (indices.classe != "Jeu") return std::nullopt;
        return IdentiteAppli{"org.exemple.Jeu", "Le Jeu", "/usr/share/applications/jeu.desktop"};
    }
    static Application jeu(std::int64_t pid) {
        return {"org.exemple.Jeu", "/usr/share/applications/jeu.desktop", "Le Jeu", pid};
    }

    test::DossierTemporaire dossier;
    BoucleQt boucle;
    std::optional<test::Processus> xvfb, wm;
    std::string nom;
    Display* client = nullptr;
    std::shared_ptr<AffichageX11> affichage;
    // The process of every window the test draws, whatever pid a window claims.
    const std::int64_t moi = getpid();
};

TEST_F(X11, LePremierPlanSonObservateurEtMasquerSuiventLesFenetres) {
    BureauX11 bureau(affichage, resoudre);
    EXPECT_TRUE(bureau.premierPlanObservable());
    EXPECT_FALSE(BureauX11(affichage, resoudre, [] { return false; }).premierPlanObservable());
    const Window jeu1 = fenetre(4001, "Jeu"), jeu2 = fenetre(4001, "Jeu");
    const Window autre = fenetre(4002, "Inconnue"), memePid = fenetre(4001, "Autre");
    const Window encoreJeu = fenetre(4003, "Jeu");
    ASSERT_TRUE(activer(jeu2));
    EXPECT_EQ(bureau.applicationAuPremierPlan(), jeu(moi));
    std::vector<Application> vues;
    auto observation = bureau.observerActivation([&](const Application& a) { vues.push_back(a); });

    ASSERT_TRUE(activer(autre));
    ASSERT_TRUE(attendreQue([&] { return vues.size() == 1; }));
    EXPECT_EQ(bureau.applicationAuPremierPlan(), (Application{{}, {}, "Inconnue", moi}));
    // The change reaches our connection while the loop does not run, and a call's round trips
    // pull it into Xlib's queue, after which the descriptor is quiet.
    activer(jeu1, false);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(bureau.applicationsOuvertes().size(), 3u) << "the pids the windows claim count not";
    EXPECT_TRUE(attendreQue([&] { return vues.size() == 2; }));
    ASSERT_TRUE(activer(jeu2));
    attendreQue([] { return false; }, 200ms);
    EXPECT_EQ(vues, (std::vector{Application{{}, {}, "Inconnue", moi}, jeu(moi)}));

    // The front window changing its hints is seen without a change of focus; a handle gone
    // hears nothing more.
    observation.reset();
    ASSERT_TRUE(activer(autre));
    fixer(autre, "WM_CLASS", XA_STRING, 8, "Autre\0Autre", 12);
    EXPECT_TRUE(attendreQue([&] {
        return bureau.applicationAuPremierPlan() == Application{{}, {}, "Autre", moi};
    }));
    EXPECT_EQ(vues.size(), 2u);
    EXPECT_EQ(bureau.applicationsOuvertes(),
              (std::vector{jeu(moi), Application{{}, {}, "Autre", moi}}));

    // Hiding iconifies every window of the application and nothing else (WM_STATE starts
    // with the state, 3 for iconic).
    bureau.masquer(jeu(moi));
    auto etat = [&](Window w) { return mots(w, "WM_STATE").size() ? mots(w, "WM_STATE")[0] : -1; };
    EXPECT_TRUE(attendreQue([&] { return etat(jeu1) == 3L && etat(jeu2) == 3L; }));
    EXPECT_NE(etat(memePid), 3L);
    EXPECT_NE(etat(autre), 3L);
    EXPECT_EQ(etat(encoreJeu), 3L);
}

TEST_F(X11, LesProprietesHostilesNeCassentRien) {
    const std::string enorme(1 << 20, 'x'), texteSale("J\xffu\0Jeu\n", 8);
    const long pidGeant = 0xffffffffL;
    const short pidCourt = 4001;
    struct Cas {
        const char* propriete;
        Atom type;
        int format;
        const void* donnees;
        int n;
        Application attendue;
    } cas[] = {
        {"WM_CLASS", XA_STRING, 8, enorme.data(), int(enorme.size()), {{}, {}, "", moi}},
        {"WM_CLASS", XA_STRING, 8, texteSale.data(), int(texteSale.size()), {{}, {}, "", moi}},
        {"WM_CLASS", XA_ATOM, 32, &pidGeant, 1, {{}, {}, "", moi}},
        {"_NET_WM_PID", XA_STRING, 8, "4001", 4, jeu(moi)},
        {"_NET_WM_PID", XA_CARDINAL, 16, &pidCourt, 1, jeu(moi)},
        {"_NET_WM_PID", XA_CARDINAL, 32, &pidGeant, 1, jeu(moi)},
    };
    for (const auto& c : cas) {
        BureauX11 bureau(affichage, resoudre);
        const Window w = fenetre(4001, "Jeu");
        ASSERT_TRUE(activer(w));
        fixer(w, c.propriete, c.type, c.format, c.donnees, c.n);
        EXPECT_TRUE(attendreQue([&] { return bureau.applicationAuPremierPlan() == c.attendue; }))
            << c.propriete << " of format " << c.format;
        XDestroyWindow(client, w);
    }

    // Windows that cease to exist while they are read, or never did.
    fenetre(4001, "Jeu");
    Window disparue = fenetre(4002, "Jeu");
    BureauX11 bureau(affichage, [&](const IndicesFenetre& indices) {
        if (disparue) XDestroyWindow(client, disparue), XSync(client, False), disparue = 0;
        return resoudre(indices);
    });
    EXPECT_EQ(bureau.applicationsOuvertes(), std::vector{jeu(moi)});
    // Once the manager has seen it go, it writes the root's properties no more.
    attendreQue([&] { return mots(racine(), "_NET_CLIENT_LIST").size() == 1; });
    attendreQue([] { return false; }, 200ms);
    const long fantomes[] = {0x7fffff0, 0x7fffff1};
    fixer(racine(), "_NET_CLIENT_LIST", XA_WINDOW, 32, fantomes, 2);
    fixer(racine(), "_NET_ACTIVE_WINDOW", XA_WINDOW, 32, fantomes, 1);
    EXPECT_TRUE(attendreQue([&] { return !bureau.applicationAuPremierPlan(); }));
    EXPECT_TRUE(bureau.applicationsOuvertes().empty());
    bureau.masquer(jeu(4001));
    EXPECT_TRUE(bureau.premierPlanObservable());
}

// Idle time grows and an input resets it; then the server goes away.
TEST_F(X11, LInactiviteCroitUneSaisieLaRemetAZeroEtLAgentSurvitALaPerteDuServeur) {
    EcranX11 ecran(affichage);
    XTestFakeMotionEvent(client, 0, 10, 10, 0);
    XSync(client, False);
    std::this_thread::sleep_for(600ms);
    EXPECT_GE(ecran.secondesInactivite().value_or(0), 0.5);
    XTestFakeMotionEvent(client, 0, 50, 50, 0);
    XSync(client, False);
    EXPECT_LT(ecran.secondesInactivite().value_or(99), 0.3);
    // Xvfb has no DPMS: nothing can have put the screens to sleep.
    EXPECT_EQ(ecran.ecransEnVeille(), false);

    BureauX11 bureau(affichage, resoudre);
    ASSERT_TRUE(activer(fenetre(4001, "Jeu")));
    ASSERT_EQ(bureau.applicationAuPremierPlan(), jeu(moi));
    int appels = 0;
    auto observation = bureau.observerActivation([&](const Application&) { ++appels; });
    XCloseDisplay(client);
    client = nullptr;
    wm.reset();
    xvfb.reset();

    // The connection's end is read on the loop; after it, the loop must idle, not spin on a
    // descriptor that stays readable.
    attendreQue([] { return false; }, 200ms);
    const std::clock_t avant = std::clock();
    attendreQue([] { return false; }, 500ms);
    EXPECT_LT(std::clock() - avant, CLOCKS_PER_SEC / 10);

    bureau.masquer(jeu(4001));
    EXPECT_FALSE(affichage->connecte() || bureau.premierPlanObservable() ||
                 bureau.applicationAuPremierPlan() || !bureau.applicationsOuvertes().empty() ||
                 ecran.secondesInactivite() || ecran.ecransEnVeille() || appels);

    // Nor does a display that never opened.
    EXPECT_EQ(AffichageX11::ouvrir(boucle, nom), nullptr);
    BureauX11 sansAffichage(nullptr, nullptr);
    EcranX11 sansEcran(nullptr);
    sansAffichage.masquer(Application{});
    auto rien = sansAffichage.observerActivation([](const Application&) {});
    EXPECT_FALSE(sansAffichage.premierPlanObservable() ||
                 sansAffichage.applicationAuPremierPlan() ||
                 !sansAffichage.applicationsOuvertes().empty() || sansEcran.secondesInactivite() ||
                 sansEcran.ecransEnVeille());
}

} // namespace

TEST_F(X11, TaviActiviteDitLApplicationAuPremierPlanEtLInactivite) {
    ASSERT_TRUE(activer(fenetre(4001, "Jeu")));
    // No bus answers: what logind would say is reported as unobservable, not waited for.
    const auto s = test::executer({TAVI_BINAIRE, "activite"}, "",
                                  {{"DISPLAY", nom},
                                   {"XDG_SESSION_TYPE", "x11"},
                                   {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nulle/part"},
                                   {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nulle/part"}});
    ASSERT_EQ(s.statut, 0) << s.err;
    const auto etat = nlohmann::json::parse(s.out);
    // Named by its process, the test itself, not by the class it claims.
    EXPECT_EQ(etat["appli"]["nom"], "tests_x11") << s.out;
    EXPECT_EQ(etat["appli"]["pid"], moi) << "the client's process, not the pid it claims";
    EXPECT_EQ(etat["inobservable"], nlohmann::json({"ecran_verrouille", "sur_console",
                                                    "session_active", "affichage_retenu"}));
}

// `xdotool set_window --class Thunar` on a game: the child's copy of a program, named after a
// file manager that is never napped, and the system's own program, both run by a real second
// user, both windows claiming to be Thunar and another process.
TEST_F(X11, UnProgrammeDeLEnfantNePrendJamaisLeNomDUnProgrammeDuSysteme) {
    if (geteuid() != 0) GTEST_SKIP() << "running a program as another user needs root";
    if (access("/usr/bin/xlogo", X_OK) != 0 || access("/usr/bin/setpriv", X_OK) != 0)
        GTEST_SKIP() << "xlogo (x11-apps) or setpriv (util-linux) is not installed";
    if (std::system("id tavienfant > /dev/null 2>&1 || useradd -m tavienfant") != 0)
        GTEST_SKIP() << "no user tavienfant and useradd failed";
    const passwd* enfant = getpwnam("tavienfant");
    ASSERT_TRUE(enfant && enfant->pw_dir);
    const std::filesystem::path copie = std::filesystem::path(enfant->pw_dir) / "thunar";
    std::filesystem::copy_file("/usr/bin/xlogo", copie,
                               std::filesystem::copy_options::overwrite_existing);
    ASSERT_EQ(chown(copie.c_str(), enfant->pw_uid, enfant->pw_gid), 0);
    auto enTantQuEnfant = [&](const std::string& programme) {
        return std::make_unique<test::Processus>(
            std::vector<std::string>{"/usr/bin/setpriv", "--reuid=tavienfant", "--regid=tavienfant",
                                     "--init-groups", "--", programme},
            std::map<std::string, std::string>{{"DISPLAY", nom}});
    };
    const auto leJeu = enTantQuEnfant(copie.string());
    const auto leSysteme = enTantQuEnfant("/usr/bin/xlogo");
    ASSERT_TRUE(attendreQue([&] { return mots(racine(), "_NET_CLIENT_LIST").size() == 2; }, 10s));
    const long faux = 1;
    for (const long w : mots(racine(), "_NET_CLIENT_LIST")) {
        fixer(w, "WM_CLASS", XA_STRING, 8, "thunar\0Thunar", 14);
        fixer(w, "_NET_WM_PID", XA_CARDINAL, 32, &faux, 1);
    }

    const auto index = IndexEntrees::charger(EnvironnementXdg::duProcessus());
    BureauX11 bureau(affichage, [&](const IndicesFenetre& i) { return index->identifier(i); });
    const Application jeu{copie.string(), std::nullopt, "thunar", leJeu->pid()};
    const Application systeme{"xlogo", std::nullopt, "xlogo", leSysteme->pid()};
    const auto ouvertes = bureau.applicationsOuvertes();
    EXPECT_EQ(ouvertes.size(), 2u);
    EXPECT_EQ(std::ranges::count(ouvertes, jeu), 1);
    EXPECT_EQ(std::ranges::count(ouvertes, systeme), 1);
    std::filesystem::remove(copie);
}
