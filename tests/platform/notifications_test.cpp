// The desktop's notifications on a private dbus-daemon, with python3-dbusmock's notification
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

TEST(NotificationsBus, SansServeurNonPuisLeTexteTelQuelEtLaSuiteRemplaceLaPremiere) {
    if (access("/usr/bin/dbus-daemon", X_OK) ||
        test::executer({"/usr/bin/python3", "-c", "import dbusmock"}).statut != 0)
        GTEST_SKIP() << "needs dbus-daemon (package dbus) and python3-dbusmock";
    test::Processus daemon({"/usr/bin/dbus-daemon", "--session", "--print-address", "--nofork"});
    setenv("DBUS_SESSION_BUS_ADDRESS", daemon.ligne().c_str(), 1);
    BoucleQt boucle;
    BusSd bus(boucle, TypeBus::session);
    ASSERT_TRUE(test::attendreQue([&] { return bus.connecte(); }));
    NotificationsBus notifications(bus);
    const auto notifier = [&](const std::string& texte) {
        std::optional<bool> pris;
        notifications.notifier("Au lit", texte, "repos", [&](bool p) { pris = p; });
        test::attendreQue([&] { return pris.has_value(); });
        return pris;
    };
    EXPECT_EQ(notifier("Plus que 5 minutes"), false) << "no server: the caller says it otherwise";

    test::DossierTemporaire dossier;
    test::Processus serveur({"/usr/bin/python3", "-m", "dbusmock", "--template",
                             "notification_daemon", "-l", (dossier / "appels").string()});
    ASSERT_EQ(test::executer({"/usr/bin/gdbus", "wait", "--session", "--timeout", "10",
                              "org.freedesktop.Notifications"})
                  .statut,
              0);
    EXPECT_EQ(notifier("Plus que <b>5</b> minutes & voilà"), true);
    EXPECT_EQ(notifier("Plus que 1 minute"), true);
    EXPECT_EQ(notifier("\xff\xfe"), false) << "not UTF-8: never sent";
    std::ostringstream appels;
    appels << std::ifstream(dossier / "appels").rdbuf();
    // Shown as written, never as markup; the second takes the place of the first (number 1).
    EXPECT_NE(appels.str().find("\"Tavi Home\" 0 \"com.tavi.home\" \"Au lit\" \"Plus que "
                                "&lt;b&gt;5&lt;/b&gt; minutes &amp; voilà\""),
              std::string::npos)
        << appels.str();
    EXPECT_NE(appels.str().find("\"Tavi Home\" 1 \"com.tavi.home\" \"Au lit\" \"Plus que 1"),
              std::string::npos)
        << appels.str();
}
