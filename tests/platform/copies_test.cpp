// The agent's other copies through a real Qt loop, each copy an object of its own as separate
// processes would be: on a private dbus-daemon that the test starts, and on a local socket in
// a temporary runtime folder when the session has no bus.
#include "platform/linux/bus_sd.h"
#include "platform/linux/copies_linux.h"
#include "platform/linux/copies_locales.h"
#include "platform/qt/boucle_qt.h"
#include "support/application_qt.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/variable.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace tavi;
using namespace std::chrono_literals;
using test::attendreQue;

namespace {

struct Copie {
    std::unique_ptr<BusSd> bus;
    std::unique_ptr<Copies> copies;
    int montree = 0;
    std::optional<bool> autre() {
        std::optional<bool> r;
        copies->autreInstance([&](bool a) { r = a; });
        return attendreQue([&] { return r.has_value(); }) ? r : std::nullopt;
    }
    // Answered after the request: the place is settled.
    std::optional<bool> tenir(bool agent) {
        copies->tenir(agent, [this] { ++montree; });
        return autre();
    }
};

class CopiesTest : public testing::Test {
protected:
    std::unique_ptr<Copie> nouvelle() {
        auto copie = std::make_unique<Copie>();
        copie->bus = std::make_unique<BusSd>(boucle, TypeBus::session);
        copie->copies = copiesDeSession(boucle, *copie->bus);
        return copie;
    }
    // A copy that asks and ends as soon as the message has left, as a hand copy does.
    void montrerPuisFinir() {
        auto passant = nouvelle();
        passant->copies->montrer([&passant] { passant.reset(); });
        EXPECT_TRUE(attendreQue([&] { return !passant; }));
    }

    // Who holds the place, who is shown, who steps aside.
    void parcourirLesRoles() {
        auto main1 = nouvelle();
        auto temoin = nouvelle();
        EXPECT_EQ(temoin->autre(), false) << "nobody holds the place";
        EXPECT_EQ(main1->tenir(false), false) << "the holder is not another copy";
        EXPECT_EQ(temoin->autre(), true);
        auto main2 = nouvelle();
        EXPECT_EQ(main2->tenir(false), true) << "a hand copy does not take a held place";

        montrerPuisFinir();
        ASSERT_TRUE(attendreQue([&] { return main1->montree == 1; }));
        attendreQue([] { return false; }, 200ms);
        EXPECT_EQ(main1->montree, 1) << "once";
        EXPECT_EQ(main2->montree, 0) << "only the holder is shown";

        auto agent = nouvelle();
        EXPECT_EQ(agent->tenir(true), false) << "the agent copy takes the place";
        EXPECT_EQ(main1->autre(), true);
        auto main3 = nouvelle();
        EXPECT_EQ(main3->tenir(false), true);
        EXPECT_EQ(agent->autre(), false) << "and keeps it from a hand copy";
        montrerPuisFinir();
        ASSERT_TRUE(attendreQue([&] { return agent->montree == 1; }));
        attendreQue([] { return false; }, 200ms);
        EXPECT_EQ(main1->montree + main2->montree + main3->montree, 1);
    }

    BoucleQt boucle;
};

class CopiesBusTest : public CopiesTest {
protected:
    void SetUp() override {
        if (access("/usr/bin/dbus-daemon", X_OK) != 0)
            GTEST_SKIP() << "dbus-daemon is not installed (package dbus)";
    }
    // At a fixed address, so that a daemon started again is the same bus.
    void demarrer() {
        daemon = std::make_unique<test::Processus>(std::vector<std::string>{
            "/usr/bin/dbus-daemon", "--session", "--nofork", "--print-address",
            "--address=unix:path=" + (dossier / "bus").string()});
        ASSERT_FALSE(daemon->ligne().empty());
    }
    test::DossierTemporaire dossier;
    test::Variable adresse{"DBUS_SESSION_BUS_ADDRESS",
                           ("unix:path=" + (dossier / "bus").string()).c_str()};
    test::Variable runtime{"XDG_RUNTIME_DIR", dossier.chemin().c_str()};
    std::unique_ptr<test::Processus> daemon;
};

class CopiesLocalesTest : public CopiesTest {
protected:
    test::DossierTemporaire execution;
    test::Variable sansBus{"DBUS_SESSION_BUS_ADDRESS", nullptr};
    test::Variable runtime{"XDG_RUNTIME_DIR", execution.chemin().c_str()};
    std::filesystem::path place = execution / "tavi-home" / "copies";
};

// A client of the place, or with `lier` a listener left there without listening.
int connecter(const std::filesystem::path& chemin, bool lier = false) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    chemin.native().copy(a.sun_path, sizeof a.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto adresse = reinterpret_cast<sockaddr*>(&a);
    EXPECT_EQ(lier ? bind(fd, adresse, sizeof a) : connect(fd, adresse, sizeof a), 0) << chemin;
    return fd;
}

} // namespace

TEST_F(CopiesBusTest, LeNomDuBusDesigneLaCopieQuiTientEtLAgentLePrendMemeApresUneReconnexion) {
    demarrer();
    parcourirLesRoles();
    EXPECT_FALSE(std::filesystem::exists(dossier / "tavi-home")) << "no socket beside the bus";

    auto main1 = nouvelle();
    EXPECT_EQ(main1->tenir(false), false);
    daemon->arreter();
    ASSERT_TRUE(attendreQue([&] { return !main1->bus->connecte(); }));
    demarrer();
    ASSERT_TRUE(attendreQue([&] { return main1->bus->connecte(); }));
    auto temoin = nouvelle();
    EXPECT_TRUE(attendreQue([&] { return temoin->autre() == true; }));
}

TEST_F(CopiesLocalesTest, LaPriseLocaleDesigneLaCopieQuiTientEtLAgentLaPrend) {
    parcourirLesRoles();
}

TEST_F(CopiesLocalesTest, UneSocketRestanteEstRemplaceeEtUnDossierOuvertEstRefuse) {
    auto dossier = [&](const char* nom, mode_t mode) {
        const auto d = execution / nom;
        mkdir(d.c_str(), mode);
        chmod(d.c_str(), mode);
        return d;
    };
    dossier("tavi-home", 0700);
    // What a copy ended by _Exit leaves: a socket file nobody listens on.
    close(connecter(place, true));
    auto main1 = nouvelle();
    EXPECT_EQ(main1->tenir(false), false);
    EXPECT_EQ(nouvelle()->autre(), true);

    const auto prive = dossier("prive", 0700);
    std::vector refuses{dossier("ouvert", 0755), execution / "lien"};
    std::filesystem::create_directory_symlink(prive, refuses[1]);
    if (geteuid() == 0) {
        refuses.push_back(dossier("autrui", 0700));
        ASSERT_EQ(chown(refuses.back().c_str(), 65534, 65534), 0);
    }
    for (const auto& d : refuses) {
        testing::internal::CaptureStderr();
        CopiesLocales(boucle, d).tenir(false, [] {});
        EXPECT_NE(testing::internal::GetCapturedStderr().find(d.string()), std::string::npos);
        EXPECT_FALSE(std::filesystem::exists(d / "copies") || exists(prive / "copies")) << d;
    }
}

TEST_F(CopiesLocalesTest, CeQuiNEstPasLaLigneEstIgnoreSansRetenirLaBoucle) {
    auto main1 = nouvelle();
    EXPECT_EQ(main1->tenir(false), false);
    std::vector<int> muettes;
    for (int i = 0; i < 10; ++i)
        muettes.push_back(connecter(place));
    for (const std::string octets : {"bonjour\n", "montrer", "montrer\nmontrer\n", "MONTRER\n"}) {
        const int fd = connecter(place);
        EXPECT_EQ(write(fd, octets.data(), octets.size()), static_cast<ssize_t>(octets.size()));
        close(fd);
    }
    montrerPuisFinir();
    ASSERT_TRUE(attendreQue([&] { return main1->montree == 1; })) << "silent peers wait aside";
    // The holder closes the silent ones in the end.
    EXPECT_TRUE(attendreQue([&] {
        char octet;
        return std::all_of(muettes.begin(), muettes.end(),
                           [&](int fd) { return recv(fd, &octet, 1, MSG_DONTWAIT) == 0; });
    }));
    EXPECT_EQ(main1->montree, 1);
    std::for_each(muettes.begin(), muettes.end(), close);
}
