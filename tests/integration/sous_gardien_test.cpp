// tavi and the agent under a guardian, as the child runs them (as root: as tavienfant): a relay
// stub on a Unix socket answers as the guardian would, while the store's "serveur" setting and
// the proxy variables name a trap that must see nothing.
#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/serveur_brut.h"

#include <csignal>
#include <gtest/gtest.h>
#include <mutex>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>

namespace tavi {

using namespace std::chrono_literals;

TEST(SousGardien, ToutPasseParLeRelaisEtLAgentEnMarcheAdopteLAppairage) {
    test::DossierTemporaire dossier;
    std::vector<std::string> enfant;
    const passwd* e = geteuid() == 0 && !std::system("id tavienfant || useradd -m tavienfant")
                          ? getpwnam("tavienfant")
                          : nullptr;
    if (e && chown(dossier.chemin().c_str(), e->pw_uid, e->pw_gid) == 0)
        enfant = {"/usr/bin/setpriv", "--reuid=tavienfant", "--regid=tavienfant", "--clear-groups"};
    else if (geteuid() == 0)
        GTEST_SKIP() << "no user tavienfant to run as";
    std::mutex verrou;
    std::vector<std::pair<int, std::string>> vus;
    std::atomic<bool> coupe = false;
    std::atomic<int> detournees = 0;
    test::ServeurBrut leurre([&](int, const auto&) { ++detournees; });
    test::ServeurBrut relais(
        [&](int s, const std::atomic<bool>& arret) {
            ucred pair{};
            socklen_t taille = sizeof pair;
            getsockopt(s, SOL_SOCKET, SO_PEERCRED, &pair, &taille);
            const std::string requete = test::ServeurBrut::lireRequete(s);
            const std::string ligne = requete.substr(0, requete.find(" HTTP/"));
            std::unique_lock v(verrou);
            vus.emplace_back(pair.pid, ligne);
            // The guardian's own copy: the first that shows up.
            const bool agent = vus.front().first == pair.pid;
            v.unlock();
            if (ligne == "POST /gardien/presence") {
                test::ServeurBrut::ecrire(s, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" +
                                                 std::string(agent ? "agent\n" : "copie\n"));
                char signe[64];
                for (pollfd p{s, POLLIN, 0}; !arret && !coupe;)
                    if (poll(&p, 1, 100) > 0 && recv(s, signe, sizeof signe, 0) <= 0) return;
                return;
            }
            const std::string corps =
                ligne.ends_with("ordinateur")
                    ? R"({"jeton":"gardien","enfant":)"
                      R"({"id":"e","prenom":"Léa"},"ordinateur":{"id":"o","nom":"pc"}})"
                    : "{}";
            test::ServeurBrut::ecrire(s,
                                      "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                                          std::to_string(corps.size()) + "\r\n\r\n" + corps);
        },
        (dossier / "relais").string());
    const std::string d = dossier.chemin().string(), piege = leurre.adresse();
    const std::map<std::string, std::string> env = {{"HOME", d},
                                                    {"XDG_RUNTIME_DIR", d},
                                                    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/x"},
                                                    {"DISPLAY", ""},
                                                    {"TAVI_RELAIS", d + "/relais"},
                                                    {"http_proxy", piege},
                                                    {"https_proxy", piege},
                                                    {"ALL_PROXY", piege}};
    const auto commande = [&](std::vector<std::string> a) {
        a.insert(a.begin(), enfant.begin(), enfant.end());
        return a;
    };
    // The requests `ligne` from `pid`, as soon as there are more than `n` (`delai` at most).
    const auto vuesDe = [&](int pid, const std::string& ligne, int n, std::chrono::seconds delai) {
        for (auto fin = std::chrono::steady_clock::now() + delai;;
             std::this_thread::sleep_for(100ms)) {
            std::lock_guard v(verrou);
            const auto c = std::count(vus.begin(), vus.end(), std::pair(pid, ligne));
            if (c > n || std::chrono::steady_clock::now() >= fin) return c;
        }
    };

    const auto reglage =
        test::executer(commande({TAVI_BINAIRE, "reglage", "serveur", piege}), "", env);
    EXPECT_NE(reglage.err.find("ignore ce réglage"), std::string::npos) << reglage.err;
    test::Processus agent(commande({TAVI_HOME_BINAIRE, "--sans-interface"}), env);
    ASSERT_EQ(vuesDe(agent.pid(), "POST /gardien/presence", 0, 10s), 1);
    struct stat proc {};
    ASSERT_EQ(stat(("/proc/" + std::to_string(agent.pid()) + "/environ").c_str(), &proc), 0);
    EXPECT_EQ(proc.st_uid, 0u) << "the agent's /proc files stay out of its user's reach";

    const auto rejoint = test::executer(commande({TAVI_BINAIRE, "rejoindre", "123456"}), "", env);
    ASSERT_EQ(rejoint.statut, 0) << rejoint.err;
    EXPECT_EQ(vuesDe(agent.pid(), "POST /api/enfant/battement", 0, 20s), 1)
        << "the running agent took the pairing and beat without a restart";
    auto copie = env;
    copie["TAVI_AGENT"] = "1";
    const auto seconde = test::executer(
        commande({"/usr/bin/timeout", "10", TAVI_HOME_BINAIRE, "--sans-interface"}), "", copie);
    EXPECT_EQ(seconde.statut, 0)
        << "a copy the guardian did not start steps aside, TAVI_AGENT or not";
    EXPECT_EQ(kill(agent.pid(), 0), 0) << "the guardian's copy stays";
    coupe = true; // from now on each presence is closed as soon as it is answered
    EXPECT_EQ(vuesDe(agent.pid(), "POST /gardien/presence", 1, 6s), 2)
        << "a presence the guardian closed comes back within two rounds";
    EXPECT_EQ(detournees, 0) << "nothing went to the serveur setting or a proxy";
}

} // namespace tavi
