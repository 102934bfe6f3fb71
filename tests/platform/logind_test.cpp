// logind, the inhibitors and GNOME's idle monitor, against python3-dbusmock on a private
// dbus-daemon that stands for both the system and the session bus, through a real Qt loop.
#include "platform/linux/bus_sd.h"
#include "platform/linux/inhibitions.h"
#include "platform/linux/logind.h"
#include "platform/linux/moniteur_gnome.h"
#include "platform/linux/session_linux.h"
#include "platform/qt/boucle_qt.h"
#include "support/application_qt.h"
#include "support/processus.h"
#include "support/variable.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <systemd/sd-bus.h>
#include <unistd.h>

using namespace tavi;
using namespace std::chrono_literals;
using test::attendreQue;
using Horloge = std::chrono::steady_clock;

namespace {

constexpr const char* python = "/usr/bin/python3";
constexpr const char* gdbus = "/usr/bin/gdbus";
constexpr const char* login1 = "org.freedesktop.login1";
constexpr const char* idleMonitor = "org.gnome.Mutter.IdleMonitor";
constexpr const char* cheminMoniteur = "/org/gnome/Mutter/IdleMonitor/Core";
constexpr const char* gestionnaire = "org.gnome.SessionManager";
constexpr const char* interfaceSession = "org.freedesktop.login1.Session";

class SessionDBus : public testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/bin/dbus-daemon", X_OK) != 0)
            GTEST_SKIP() << "dbus-daemon is not installed (package dbus)";
        if (access(gdbus, X_OK) != 0) GTEST_SKIP() << "gdbus is not installed (libglib2.0-bin)";
        if (test::executer({python, "-c", "import dbusmock"}).statut != 0)
            GTEST_SKIP() << "python3-dbusmock is not installed";
        daemon = std::make_unique<test::Processus>(std::vector<std::string>{
            "/usr/bin/dbus-daemon", "--session", "--print-address", "--nofork"});
        const std::string adresse = daemon->ligne();
        ASSERT_FALSE(adresse.empty());
        setenv("DBUS_SYSTEM_BUS_ADDRESS", adresse.c_str(), 1);
        setenv("DBUS_SESSION_BUS_ADDRESS", adresse.c_str(), 1);
        ASSERT_GE(sd_bus_open_system(&controle), 0);
    }
    void TearDown() override {
        sd_bus_flush_close_unref(controle);
        mocks.clear();
    }

    void lancer(std::vector<std::string> arguments, const char* nom) {
        arguments.insert(arguments.begin(), {python, "-m", "dbusmock"});
        mocks.push_back(std::make_unique<test::Processus>(arguments));
        // Both buses are the one daemon.
        EXPECT_EQ(test::executer({gdbus, "wait", "--session", "--timeout", "10", nom}).statut, 0)
            << nom << " did not come on the bus";
    }
    // logind with the user's display session `session`.
    void lancerLogind() {
        lancer({"--template", "logind"}, login1);
        mock(login1, "/org/freedesktop/login1", "AddSession", "ssusb", session.c_str(), "seat0",
             static_cast<std::uint32_t>(getuid()), "enfant", 1);
        // The template's own GetUser adds a number to a string.
        mock(login1, "/org/freedesktop/login1", "AddMethod", "sssss",
             "org.freedesktop.login1.Manager", "GetUser", "u", "o",
             "ret = '/org/freedesktop/login1/user/%d' % args[0]");
        elire(session);
    }
    void elire(const std::string& id) {
        definir(cheminUtilisateur(), "org.freedesktop.login1.User", "Display", "(so)", id.c_str(),
                cheminSession(id).c_str());
    }
    static std::string cheminSession(const std::string& id) {
        return "/org/freedesktop/login1/session/" + id;
    }
    std::string cheminSession() const { return cheminSession(session); }
    static std::string cheminUtilisateur() {
        return "/org/freedesktop/login1/user/" + std::to_string(getuid());
    }

    // A call on the bus; `mock` calls a mock's control interface, `definir` sets a property of
    // logind's mock, which announces it with PropertiesChanged.
    template <class... A>
    void appeler(const char* nom, const std::string& chemin, const char* interface,
                 const char* methode, const char* signature, A... arguments) {
        sd_bus_error erreur = SD_BUS_ERROR_NULL;
        const int r = sd_bus_call_method(controle, nom, chemin.c_str(), interface, methode, &erreur,
                                         nullptr, signature, arguments...);
        EXPECT_GE(r, 0) << methode << ": " << (erreur.message ? erreur.message : "");
        sd_bus_error_free(&erreur);
    }
    template <class... A>
    void mock(const char* nom, const std::string& chemin, const char* methode, A... arguments) {
        appeler(nom, chemin, "org.freedesktop.DBus.Mock", methode, arguments...);
    }
    template <class... A>
    void definir(const std::string& chemin, const char* interface, A... arguments) {
        appeler(login1, chemin, "org.freedesktop.DBus.Properties", "Set", "ssv", interface,
                arguments...);
    }

    std::unique_ptr<test::Processus> daemon;
    std::vector<std::unique_ptr<test::Processus>> mocks;
    std::string session = "c7";
    sd_bus* controle = nullptr;
    BoucleQt boucle;
};

} // namespace

TEST_F(SessionDBus, LogindDonneLEtatSuitSesChangementsEtSansLuiOuSansBusToutEstAbsent) {
    BusSd systeme(boucle, TypeBus::systeme);
    {
        Logind sansLogind(systeme);
        ASSERT_TRUE(attendreQue([&] { return sansLogind.pret(); }));
        EXPECT_EQ(sansLogind.actif(), std::nullopt);
        EXPECT_EQ(sansLogind.verrouille(), std::nullopt);
    }
    lancerLogind();
    definir(cheminSession(), interfaceSession, "Type", "s", "wayland");
    definir(cheminSession(), interfaceSession, "LockedHint", "s", "oui");
    Logind logind(systeme);
    std::vector<bool> actifs;
    auto surActif = logind.observerActif([&](bool a) { actifs.push_back(a); });
    Horloge::time_point vu;
    auto surTout = logind.observer([&] { vu = Horloge::now(); });
    ASSERT_TRUE(attendreQue([&] { return logind.pret(); }));

    EXPECT_EQ(logind.verrouille(), std::nullopt) << "a string where a boolean belongs";
    EXPECT_EQ(logind.actif(), true) << "the other properties still read";
    EXPECT_EQ(logind.type(), "wayland");
    EXPECT_EQ(logind.secondesInactivite(), std::nullopt) << "no idle hint, no idle time";
    ASSERT_TRUE(attendreQue([&] { return actifs == std::vector{true}; }));

    const auto avant = Horloge::now();
    definir(cheminSession(), interfaceSession, "LockedHint", "b", 1);
    ASSERT_TRUE(attendreQue([&] { return logind.verrouille() == true && vu > avant; }));

    // steady_clock is CLOCK_MONOTONIC, the clock of logind's hint.
    const auto depuis = std::chrono::duration_cast<std::chrono::microseconds>(
        (Horloge::now() - 42s).time_since_epoch());
    mock(login1, cheminSession(), "UpdateProperties", "sa{sv}", interfaceSession, 2, "IdleHint",
         "b", 1, "IdleSinceHintMonotonic", "t", std::uint64_t(depuis.count()));
    ASSERT_TRUE(attendreQue([&] { return logind.secondesInactivite().has_value(); }));
    EXPECT_NEAR(*logind.secondesInactivite(), 42.0, 1.0);

    definir(cheminSession(), interfaceSession, "Active", "b", 0);
    ASSERT_TRUE(attendreQue([&] { return actifs == std::vector{true, false}; }));
    definir(cheminSession(), interfaceSession, "Active", "u", 1u);
    ASSERT_TRUE(attendreQue([&] { return !logind.actif(); }));
    EXPECT_EQ(logind.type(), "wayland");

    daemon->arreter();
    ASSERT_TRUE(attendreQue([&] { return !systeme.connecte(); }));
    EXPECT_EQ(logind.actif(), std::nullopt);
    EXPECT_EQ(logind.verrouille(), std::nullopt);
}

TEST_F(SessionDBus, LaVeilleEstRetenueParUnInhibiteurIdleBloquantOuParGnome) {
    lancerLogind();
    BusSd systeme(boucle, TypeBus::systeme);
    BusSd sessionBus(boucle, TypeBus::session);
    const std::tuple<const char*, const char*, bool> cas[] = {
        {"sleep:idle", "block", true},
        {"idle", "delay", false},
        {"sleep:handle-lid-switch", "block", false}};
    for (const auto& [quoi, mode, retenue] : cas) {
        sd_bus_message* reponse = nullptr;
        ASSERT_GE(sd_bus_call_method(controle, login1, "/org/freedesktop/login1",
                                     "org.freedesktop.login1.Manager", "Inhibit", nullptr, &reponse,
                                     "ssss", quoi, "lecteur", "video", mode),
                  0);
        Inhibitions inhibitions(systeme, sessionBus);
        ASSERT_TRUE(attendreQue([&] { return inhibitions.parLogind().has_value(); })) << quoi;
        EXPECT_EQ(inhibitions.veilleEcranRetenue(), retenue) << quoi << " " << mode;
        EXPECT_EQ(inhibitions.parBureau(), std::nullopt) << "not GNOME";
        // Closing the descriptor takes the inhibitor back.
        sd_bus_message_unref(reponse);
        attendreQue([] { return false; }, 100ms);
    }

    lancer({"--session", gestionnaire, "/org/gnome/SessionManager", gestionnaire}, gestionnaire);
    mock(gestionnaire, "/org/gnome/SessionManager", "AddMethod", "sssss", "", "IsInhibited", "u",
         "b", "ret = args[0] == 8");
    Inhibitions inhibitions(systeme, sessionBus);
    ASSERT_TRUE(attendreQue([&] { return inhibitions.parBureau().has_value(); }));
    EXPECT_EQ(inhibitions.parBureau(), true);
    EXPECT_EQ(inhibitions.veilleEcranRetenue(), true);
}

TEST_F(SessionDBus, LeMoniteurDeGnomeDonneLInactiviteQuandIlEstLa) {
    BusSd sessionBus(boucle, TypeBus::session);
    {
        MoniteurGnome absent(sessionBus);
        attendreQue([] { return false; }, 200ms);
        EXPECT_EQ(absent.secondesInactivite(), std::nullopt);
    }
    lancer({"--session", idleMonitor, cheminMoniteur, idleMonitor}, idleMonitor);
    auto repondre = [this](const char* code) {
        mock(idleMonitor, cheminMoniteur, "AddMethod", "sssss", "", "GetIdletime", "", "t", code);
    };
    repondre("ret = 42000");
    MoniteurGnome moniteur(sessionBus);
    ASSERT_TRUE(attendreQue([&] { return moniteur.secondesInactivite().has_value(); }));
    EXPECT_NEAR(*moniteur.secondesInactivite(), 42.0, 0.5);

    repondre("ret = 1000");
    ASSERT_TRUE(attendreQue([&] { return moniteur.secondesInactivite() < 5.0; }, 3s))
        << "asked again within a second";

    // A compositor that stops answering: the call gives up after its bound, and so does the
    // answer, even though nothing wakes the loop but its deadline.
    repondre("import time; time.sleep(5); ret = 0");
    ASSERT_TRUE(attendreQue([&] { return !moniteur.secondesInactivite(); }, 5s));
}

// The child sets every variable of the agent's environment (systemctl --user set-environment,
// then a restart): pointing it at a console session nobody uses would stop the counting, and
// "x11" on Wayland would read XWayland's idle time, which grows while the child plays.
TEST_F(SessionDBus, LaSessionEtSonTypeSontCeuxDuBureauQueLogindEliraitPasCeuxDeLEnvironnement) {
    lancerLogind();
    definir(cheminSession(), interfaceSession, "Type", "s", "wayland");
    mock(login1, "/org/freedesktop/login1", "AddSession", "ssusb", "c9", "seat0",
         static_cast<std::uint32_t>(getuid()), "enfant", 0);
    definir(cheminSession("c9"), interfaceSession, "Type", "s", "tty");
    elire(session);
    test::Variable id("XDG_SESSION_ID", "c9"), type("XDG_SESSION_TYPE", "x11");

    BusSd systeme(boucle, TypeBus::systeme);
    BusSd sessionBus(boucle, TypeBus::session);
    SessionLinux sessionLinux(boucle, systeme, sessionBus, nullptr);
    Logind logind(systeme);
    ASSERT_TRUE(attendreQue([&] { return logind.pret() && sessionLinux.sessionActive(); }));
    EXPECT_EQ(logind.type(), "wayland");
    EXPECT_EQ(sessionLinux.typeSession(), "wayland");

    // logind elects another display session: it is followed.
    elire("c9");
    ASSERT_TRUE(attendreQue([&] { return logind.type() == "tty"; }));
    EXPECT_EQ(logind.actif(), false);
}
