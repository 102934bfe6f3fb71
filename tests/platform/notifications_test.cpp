// The desktop's notifications over a private dbus-daemon, with python3-dbusmock's notification
// daemon as the server, through a real Qt loop.
#include "platform/linux/bus_sd.h"
#include "platform/linux/notifications_bus.h"
#include "platform/qt/boucle_qt.h"
#include "support/application_qt.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

using namespace tavi;
using test::attendreQue;

namespace {

constexpr const char* python = "/usr/bin/python3";

class NotificationsDBus : public testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/bin/dbus-daemon", X_OK) != 0)
            GTEST_SKIP() << "dbus-daemon is not installed (package dbus)";
        if (test::executer({python, "-c", "import dbusmock"}).statut != 0)
            GTEST_SKIP() << "python3-dbusmock is not installed";
        daemon.emplace(std::vector<std::string>{"/usr/bin/dbus-daemon", "--session",
                                                "--print-address", "--nofork"});
        const std::string adresse = daemon->ligne();
        ASSERT_FALSE(adresse.empty());
        setenv("DBUS_SESSION_BUS_ADDRESS", adresse.c_str(), 1);
    }
    void lancerServeur() {
        serveur.emplace(std::vector<std::string>{python, "-m", "dbusmock", "--template",
                                                 "notification_daemon", "-l", journal.string()});
        ASSERT_EQ(test::executer({"/usr/bin/gdbus", "wait", "--session", "--timeout", "10",
                                  "org.freedesktop.Notifications"})
                      .statut,
                  0);
    }
    // What the server was asked, one call a line.
    std::string appels() const {
        std::ostringstream texte;
        texte << std::ifstream(journal).rdbuf();
        return texte.str();
    }
    std::optional<bool> notifier(NotificationsBus& n, const std::string& texte) {
        std::optional<bool> pris;
        n.notifier("Au lit", texte, "repos", [&](bool p) { pris = p; });
        attendreQue([&] { return pris.has_value(); });
        return pris;
    }

    test::DossierTemporaire dossier;
    std::filesystem::path journal = dossier / "appels.log";
    std::optional<test::Processus> daemon, serveur;
    BoucleQt boucle;
};

TEST_F(NotificationsDBus, LeServeurRecoitLeTexteTelQuelEtLaSuiteRemplaceLaPremiere) {
    lancerServeur();
    BusSd bus(boucle, TypeBus::session);
    ASSERT_TRUE(attendreQue([&] { return bus.connecte(); }));
    NotificationsBus notifications(bus);
    EXPECT_EQ(notifier(notifications, "Plus que <b>5</b> minutes & c'est tout"), true);
    EXPECT_EQ(notifier(notifications, "Plus que 1 minute"), true);
    const std::string recus = appels();
    // Never read as markup by the server.
    EXPECT_NE(recus.find("\"Plus que &lt;b&gt;5&lt;/b&gt; minutes &amp; c'est tout\""),
              std::string::npos)
        << recus;
    // The first went in as new (0) and was given 1; the second takes its place.
    EXPECT_NE(recus.find("Notify \"Tavi Home\" 0 \"com.tavi.home\" \"Au lit\""), std::string::npos)
        << recus;
    EXPECT_NE(recus.find("Notify \"Tavi Home\" 1 \"com.tavi.home\" \"Au lit\" \"Plus que 1"),
              std::string::npos)
        << recus;
}

TEST_F(NotificationsDBus, SansServeurLAppelantLApprendPourLeDireAutrement) {
    BusSd bus(boucle, TypeBus::session);
    ASSERT_TRUE(attendreQue([&] { return bus.connecte(); }));
    NotificationsBus notifications(bus);
    EXPECT_EQ(notifier(notifications, "Plus que 5 minutes"), false);
    // Nor is a text that is not UTF-8 sent.
    lancerServeur();
    EXPECT_EQ(notifier(notifications, "\xff\xfe"), false);
}

} // namespace
