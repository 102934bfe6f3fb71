// Two copies of `tavi-home` started by hand for one paired child, on an Xvfb of the test's
// own: the second steps aside for the first, which shows its welcome window. Once with no
// session bus (the copies meet on a local socket), once on a private session bus.
#include "famille_locale.h"
#include "support/application_qt.h"

#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

namespace tavi {
namespace {

using namespace std::chrono_literals;

class DeuxCopies : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (access("/usr/bin/xdotool", X_OK) != 0)
            GTEST_SKIP() << "xdotool is not installed (package xdotool)";
        if (access("/usr/bin/Xvfb", X_OK) != 0) GTEST_SKIP() << "Xvfb missing (package xvfb)";
        xvfb.emplace(std::vector<std::string>{"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0",
                                              "1024x768x24", "-nolisten", "tcp", "-noreset"});
        affichage = ":" + xvfb->ligne(20);
        ASSERT_NE(affichage, ":") << "Xvfb did not start";
        if (GetParam()) {
            if (access("/usr/bin/dbus-daemon", X_OK) != 0)
                GTEST_SKIP() << "dbus-daemon is not installed (package dbus)";
            // A session bus that starts no service: the keyring stays out, and with it the
            // token goes to the fallback file as on the socket's side.
            const auto config = famille.dossier() / "bus.conf";
            std::ofstream(config) << "<busconfig><type>session</type>"
                                     "<listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
                                     "<policy context='default'><allow send_destination='*' "
                                     "eavesdrop='true'/><allow eavesdrop='true'/>"
                                     "<allow own='*'/></policy></busconfig>";
            daemon.emplace(std::vector<std::string>{"/usr/bin/dbus-daemon",
                                                    "--config-file=" + config.string(),
                                                    "--print-address", "--nofork"});
            adresseSession = daemon->ligne();
            ASSERT_FALSE(adresseSession.empty());
        }
        famille.preparerLea();
        ASSERT_TRUE(famille.servir());
        ASSERT_EQ(tavi({"reglage", "serveur", famille.adresse()}).statut, 0);
        // Paired, which registers the login agent; and what the parents see was shown once.
        const test::Sortie rejoint = tavi({"rejoindre", famille.code()});
        ASSERT_EQ(rejoint.statut, 0) << rejoint.err;
        ASSERT_EQ(tavi({"reglage", "--json", "accord_vu", "true"}).statut, 0);
    }

    std::map<std::string, std::string> environnement() const {
        auto env = famille.environnementAgent();
        env["DBUS_SESSION_BUS_ADDRESS"] = adresseSession;
        env["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
        env["DISPLAY"] = affichage;
        env["QT_QPA_PLATFORM"] = "xcb";
        return env;
    }
    test::Sortie tavi(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), TAVI_BINAIRE);
        return test::executer(arguments, "", environnement());
    }
    // The server's last news of the computer, as text.
    std::string nouvelle() {
        const auto lignes = test::lignes(famille.commande({"rapport", "Léa"}).out);
        const auto o = nlohmann::json::parse(lignes.at(1), nullptr, false);
        return o.contains("ordinateur")
                   ? o["ordinateur"].value("derniere_nouvelle_ms", json()).dump()
                   : "";
    }
    // The agent's windows that are not the veil: its welcome window.
    int fenetresAccueil() {
        return static_cast<int>(
            test::lignes(test::executer({"/usr/bin/xdotool", "search", "--onlyvisible", "--name",
                                         "^Tavi Home$"},
                                        "", {{"DISPLAY", affichage}})
                             .out)
                .size());
    }

    using json = nlohmann::json;
    std::optional<test::Processus> xvfb, daemon;
    std::string adresseSession = "unix:path=/nonexistent";
    std::string affichage;
    test::FamilleLocale famille;
};

TEST_P(DeuxCopies, LaSecondeCedeEtLaPremiereMontreSonAccueil) {
    const std::string avant = nouvelle();
    test::Processus premiere({TAVI_HOME_BINAIRE}, environnement());
    // Once it beats it runs: it waited for an agent's copy, found none and took the place.
    ASSERT_TRUE(test::attendreQue([&] { return nouvelle() != avant; }, 20s));
    test::attendreQue([] { return false; }, 500ms);
    EXPECT_EQ(fenetresAccueil(), 0) << "paired, consent given, login agent registered";

    const test::Sortie seconde =
        test::executer({"/usr/bin/timeout", "20", TAVI_HOME_BINAIRE}, "", environnement());
    EXPECT_EQ(seconde.statut, 0) << "124 means it did not step aside\n" << seconde.err;
    EXPECT_TRUE(test::attendreQue([&] { return fenetresAccueil() == 1; }, 10s))
        << "the first copy did not show itself";
    EXPECT_EQ(premiere.arreter(), 0);
}

INSTANTIATE_TEST_SUITE_P(SansBusEtSurLeBus, DeuxCopies, testing::Bool(),
                         [](const auto& cas) { return cas.param ? "bus" : "socket"; });

} // namespace
} // namespace tavi
