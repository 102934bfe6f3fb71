// The supervision against python3-dbusmock's logind on a private dbus-daemon (standing for the
// system bus) and real processes: the agent is a shell script started as the user tavienfant.
#include "fausses_horloges.h"
#include "gardien/lanceur.h"
#include "gardien/processus.h"
#include "gardien/sessions_logind.h"
#include "gardien/surveillance.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/variable.h"

#include <algorithm>
#include <set>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <unistd.h>

using namespace tavi;

namespace {

template <class F>
bool attendreQue(F&& condition) {
    for (int i = 0; i < 100 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return condition();
}

class Supervision_ : public testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/bin/dbus-daemon", X_OK) != 0) GTEST_SKIP() << "dbus-daemon is missing";
        if (test::executer({"/usr/bin/python3", "-c", "import dbusmock"}).statut != 0)
            GTEST_SKIP() << "python3-dbusmock is not installed";
        daemon = std::make_unique<test::Processus>(std::vector<std::string>{
            "/usr/bin/dbus-daemon", "--session", "--print-address", "--nofork"});
        const std::string adresse = daemon->ligne();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", adresse.c_str(), 1);
        ASSERT_GE(sd_bus_open_system(&controle), 0);
    }
    void TearDown() override {
        // A test that fails midway leaves no agent behind holding the runner's output.
        for (pid_t pid : agents)
            kill(pid, SIGKILL);
        sd_bus_flush_close_unref(controle);
        logind.reset();
    }
    void lancerLogind() {
        logind = std::make_unique<test::Processus>(std::vector<std::string>{
            "/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"});
        for (int i = 0; i < 100; ++i) {
            if (sd_bus_call_method(controle, "org.freedesktop.login1", "/org/freedesktop/login1",
                                   "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, "") >= 0)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        FAIL() << "logind's mock did not come on the bus";
    }
    // A session of `uid` and its properties: (name, signature, value) in triples.
    template <class... A>
    void session(const char* id, std::uint32_t uid, const char* nom, A... proprietes) {
        ASSERT_GE(sd_bus_call_method(controle, "org.freedesktop.login1", "/org/freedesktop/login1",
                                     "org.freedesktop.DBus.Mock", "AddSession", nullptr, nullptr,
                                     "ssusb", id, "seat0", uid, nom, 1),
                  0);
        definir(("/org/freedesktop/login1/session/" + std::string(id)).c_str(), proprietes...);
    }
    void definir(const char*) {}
    template <class V, class... A>
    void definir(const char* chemin, const char* nom, const char* type, V valeur, A... reste) {
        EXPECT_GE(sd_bus_call_method(controle, "org.freedesktop.login1", chemin,
                                     "org.freedesktop.DBus.Properties", "Set", nullptr, nullptr,
                                     "ssv", "org.freedesktop.login1.Session", nom, type, valeur),
                  0)
            << nom;
        definir(chemin, reste...);
    }

    pid_t agentDe(const Surveillance& s) {
        const auto etat = s.etat();
        for (const auto& c : etat["comptes"])
            if (c["agent"].is_object()) return agents.emplace_back(c["agent"]["pid"].get<pid_t>());
        return 0;
    }

    SessionsLogind sessions;
    LanceurFork lanceur;
    FaussesHorloges h;
    std::vector<pid_t> agents;
    std::unique_ptr<test::Processus> daemon, logind;
    sd_bus* controle = nullptr;
};

// The user the agent runs as, and a folder both can use.
struct Enfant {
    uid_t uid = 0;
    test::DossierTemporaire dossier;
    Enfant() {
        test::executer({"/bin/sh", "-c", "id tavienfant || useradd -m tavienfant"});
        if (const passwd* p = getpwnam("tavienfant")) uid = p->pw_uid;
        chmod(dossier.chemin().c_str(), 0777);
    }
    std::string script(const std::string& nom, const std::string& corps) const {
        const auto chemin = dossier / nom;
        test::ecrireFichier(chemin, "#!/bin/sh\n" + corps + "\n");
        chmod(chemin.c_str(), 0755);
        return chemin.string();
    }
};

} // namespace

TEST_F(Supervision_, LogindNeDonneQueLesSessionsGraphiquesLocalesDesUtilisateurs) {
    EXPECT_EQ(sessions.graphiques(), std::nullopt) << "no logind on the bus";
    lancerLogind();
    session("c1", 1001, "lea", "Type", "s", "x11", "Display", "s", ":3", "Leader", "u", 4242);
    session("c2", 1002, "tom", "Type", "s", "wayland", "State", "s", "online");
    session("c3", 1003, "gdm", "Type", "s", "x11", "Class", "s", "greeter");
    session("c4", 1004, "loin", "Type", "s", "x11", "Remote", "b", 1);
    session("c5", 1005, "tty", "Type", "s", "tty");
    session("c6", 1006, "fin", "Type", "s", "wayland", "State", "s", "closing");
    const auto lues = sessions.graphiques();
    ASSERT_TRUE(lues);
    ASSERT_EQ(lues->size(), 2u);
    const auto& lea = lues->at(lues->at(0).id == "c1" ? 0 : 1);
    EXPECT_EQ(lea, (SessionLogind{"c1", 1001, "lea", "seat0", "x11", "active", ":3", 4242,
                                     "/run/user/1001", "", false}));

    // What the guardian counts: every local session of a user, text consoles too.
    const auto locales = sessions.locales();
    ASSERT_TRUE(locales);
    std::set<std::string> ids;
    for (const auto& s : *locales)
        ids.insert(s.id);
    EXPECT_EQ(ids, (std::set<std::string>{"c1", "c2", "c5"}));
    EXPECT_TRUE(sessions.verrouiller("c1"));
    EXPECT_FALSE(sessions.versLaVeille());
}

TEST_F(Supervision_, LAgentDemarreCommeLEnfantAvecUnEnvironnementPropreEtRienDuGardien) {
    if (geteuid() != 0) GTEST_SKIP() << "starting a program as another user needs root";
    Enfant enfant;
    const auto sortie = enfant.dossier / "sortie";
    const int fuite = open("/dev/null", O_RDONLY); // no O_CLOEXEC: the launcher must close it
    const auto agent = enfant.script(
        "agent", "{ id -u; id -G; pwd; [ -e /proc/$$/fd/" + std::to_string(fuite) +
                     " ] && echo fuite; tr '\\0' '\\n' < /proc/$$/environ; } > " + sortie.string());
    const auto autorite = enfant.dossier / "Xauthority";
    test::ecrireFichier(autorite, "");
    ASSERT_EQ(chown(autorite.c_str(), enfant.uid, enfant.uid), 0);
    test::Processus meneur({"/bin/sleep", "60"}, {{"XAUTHORITY", autorite.string()},
                                                  {"LANG", "fr_FR.UTF-8"},
                                                  {"WAYLAND_DISPLAY", "wayland-0\x1b[31m"}});
    lancerLogind();
    session("c1", enfant.uid, "tavienfant", "Type", "s", "x11", "Display", "s", ":7", "Leader", "u",
            static_cast<std::uint32_t>(meneur.pid()));
    test::Variable preload("LD_PRELOAD", "/tmp/piege.so"), fuseau("TZ", "Pacific/Kiritimati");
    const auto lues = sessions.graphiques();
    ASSERT_TRUE(lues && lues->size() == 1);
    const auto lancement = preparerLancement(lues->front(), agent, "/run/relais-essai");
    ASSERT_TRUE(lancement);
    const gid_t adm = 4; // a group of the guardian's that the agent must not keep
    ASSERT_EQ(setgroups(1, &adm), 0);
    const auto lance = LanceurFork().lancer(*lancement);
    setgroups(0, nullptr);
    close(fuite);
    ASSERT_TRUE(lance);
    ASSERT_EQ(waitpid(lance->pid, nullptr, 0), lance->pid);
    const auto u = std::to_string(enfant.uid);
    EXPECT_EQ(test::lireFichier(sortie),
              u + "\n" + u +
                  "\n/home/tavienfant\nTAVI_AGENT=1\nTAVI_RELAIS=/run/relais-essai\n"
                  "HOME=/home/tavienfant\nUSER=tavienfant\nLOGNAME=tavienfant\nSHELL=/bin/sh\n"
                  "PATH=/usr/local/bin:/usr/bin:/bin\nXDG_RUNTIME_DIR=/run/user/" +
                  u + "\nDISPLAY=:7\nXAUTHORITY=" + autorite.string() + "\nLANG=fr_FR.UTF-8\n");

    ASSERT_EQ(chown(autorite.c_str(), 0, 0), 0);
    const auto env = preparerLancement(lues->front(), agent, "/r")->environnement;
    EXPECT_EQ(std::count_if(env.begin(), env.end(), [](auto& v) { return v.starts_with("XAU"); }),
              0)
        << "an X authority that is not the user's own is left out";
    // A display manager's leader names none: the user's own file is found where xinit keeps it.
    const std::filesystem::path usuelle = "/home/tavienfant/.Xauthority";
    test::ecrireFichier(usuelle, "");
    ASSERT_EQ(chown(usuelle.c_str(), enfant.uid, enfant.uid), 0);
    const auto avecUsuelle = preparerLancement(lues->front(), agent, "/r")->environnement;
    std::filesystem::remove(usuelle);
    EXPECT_EQ(std::count(avecUsuelle.begin(), avecUsuelle.end(), "XAUTHORITY=" + usuelle.string()),
              1);
}

TEST_F(Supervision_, LAgentTueArreteOuMuetRevientEtLAbsenceEstNoteeSansJamaisPrendreUneCopie) {
    if (geteuid() != 0) GTEST_SKIP() << "starting a program as another user needs root";
    Enfant enfant;
    const uid_t uid = enfant.uid;
    lancerLogind();
    session("c1", uid, "tavienfant", "Type", "s", "x11");
    Surveillance s({sessions, lanceur, h}, {enfant.script("agent", "exec sleep 600"), "/r", ""});
    const std::set<uid_t> relies{uid};
    s.tic(relies);
    const pid_t premier = agentDe(s);
    ASSERT_GT(premier, 0);
    EXPECT_TRUE(s.agentAttendu(uid) && s.estAgent(uid, premier));
    const auto u = std::to_string(uid);
    test::Processus copie(
        {"/usr/bin/setpriv", "--reuid", u, "--regid", u, "--clear-groups", "/bin/sleep", "60"});
    EXPECT_FALSE(s.estAgent(uid, copie.pid()));
    s.presenceOuverte(uid, premier);

    kill(premier, SIGKILL);
    pid_t second = 0;
    ASSERT_TRUE(attendreQue([&] { return s.tic(relies), (second = agentDe(s)) != premier; }));
    ASSERT_GT(second, 0) << "restarted at the next tic, with no wait"; // kill(0) stops us all
    EXPECT_FALSE(s.estAgent(uid, premier));
    s.presenceOuverte(uid, second);

    kill(second, SIGSTOP);
    ASSERT_TRUE(attendreQue([&] { return Processus::etat(second)->lettre == 'T'; }));
    s.tic(relies);
    EXPECT_TRUE(attendreQue([&] { return Processus::etat(second)->lettre == 'S'; }));
    s.signeDeVie(uid, second);
    EXPECT_EQ(agentDe(s), second);

    h.avancer(Surveillance::silenceMaxMs);
    s.tic(relies);
    h.avancer(1000); // the second death in a row waits a second
    s.tic(relies);
    const pid_t troisieme = agentDe(s);
    EXPECT_NE(troisieme, second);
    EXPECT_TRUE(attendreQue([&] { return s.tic(relies), !Processus::etat(second); }))
        << "the silent one is killed and reaped";

    s.presenceOuverte(uid, copie.pid());
    ASSERT_TRUE(attendreQue(
        [&] { return Processus::executable(troisieme).value_or("").ends_with("/sleep"); }));
    auto membre = s.prendre(uid, copie.pid());
    EXPECT_FALSE(membre["agent"].get<bool>());
    s.rendre(uid, membre);
    s.presenceOuverte(uid, troisieme);
    h.avancer(Surveillance::trouMs); // stopped and continued between two tics: a gap
    s.signeDeVie(uid, troisieme);
    membre = s.prendre(uid, troisieme);
    EXPECT_TRUE(membre["agent"].get<bool>());
    EXPECT_TRUE(membre["executable"].get<std::string>().ends_with("/sleep"));
    EXPECT_EQ(membre["demarrage"].get<std::string>().size(), 36u);
    std::vector<std::string> fins;
    for (const auto& a : membre["absences"])
        fins.push_back(a["fin"]);
    EXPECT_EQ(fins, (std::vector<std::string>{"relance", "arret", "relance", "retour"}));
    EXPECT_EQ(membre["relances"].size(), 3u);
    EXPECT_EQ(membre["absences"][2]["duree_ms"], Surveillance::silenceMaxMs + 1000)
        << "silent since";

    definir("/org/freedesktop/login1/session/c1", "State", "s", "closing");
    s.tic(relies);
    EXPECT_FALSE(s.agentAttendu(uid));
    EXPECT_TRUE(attendreQue([&] { return s.tic(relies), !Processus::etat(troisieme); }));
}

TEST_F(Supervision_, UnAgentQuiMeurtSansCesseEstRelanceDeMoinsEnMoinsVite) {
    if (geteuid() != 0) GTEST_SKIP() << "starting a program as another user needs root";
    Enfant enfant;
    lancerLogind();
    session("c1", enfant.uid, "tavienfant", "Type", "s", "wayland");
    Surveillance s({sessions, lanceur, h}, {enfant.script("agent", "exit 1"), "/r", ""});
    const std::set<uid_t> relies{enfant.uid};
    const auto attente = [&] { return s.etat()["comptes"][0].value("relance_dans_ms", -1); };
    s.tic(relies);
    for (int ms : {1000, 2000, 4000, 8000}) {
        ASSERT_TRUE(attendreQue([&] { return s.tic(relies), agentDe(s) == 0; }));
        EXPECT_EQ(attente(), ms);
        h.avancer(ms - 1);
        s.tic(relies);
        EXPECT_EQ(agentDe(s), 0) << "not before " << ms << " ms";
        h.avancer(1);
        s.tic(relies);
        EXPECT_NE(agentDe(s), 0) << "at " << ms << " ms";
    }
    EXPECT_EQ(s.prendre(enfant.uid, 1)["relances"].size(), 6u);
}
