#include "platform/qt/boucle_qt.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/api.h"
#include "server/transport_curl.h"
#include "support/application_qt.h"
#include "support/serveur_brut.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tavi {
namespace {

using namespace std::chrono_literals;
using test::ServeurBrut;

// Short bounds, so that each fault runs into its own bound within seconds. libcurl measures
// inactivity about once a second and only from the first second on: silence ends some 3 s
// after the inactivity bound, so the total bound is set past that.
const TransportCurl::Bornes bornes{1s, 1s, 6s, 1u << 20};

// A loopback port that listens but never accepts, its queue already full: a connection to it
// never completes.
class PortSature {
public:
    PortSature() {
        sockaddr_in adresse{};
        adresse.sin_family = AF_INET;
        adresse.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t taille = sizeof adresse;
        ecoute = socket(AF_INET, SOCK_STREAM, 0);
        bind(ecoute, reinterpret_cast<sockaddr*>(&adresse), taille);
        listen(ecoute, 0);
        getsockname(ecoute, reinterpret_cast<sockaddr*>(&adresse), &taille);
        port = ntohs(adresse.sin_port);
        for (int& client : remplissage) {
            client = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            connect(client, reinterpret_cast<sockaddr*>(&adresse), taille);
        }
        std::this_thread::sleep_for(50ms);
    }
    ~PortSature() {
        for (int client : remplissage)
            close(client);
        close(ecoute);
    }
    std::string adresse() const { return "http://127.0.0.1:" + std::to_string(port); }

private:
    int ecoute = -1;
    int port = 0;
    int remplissage[3] = {-1, -1, -1};
};

// Reads the request, sends `entete`, then `corps` up to `fois` times `pause` apart, and holds
// the connection until the server stops.
ServeurBrut::Conduite repondre(std::string entete, std::string corps = "", int fois = 0,
                               std::chrono::milliseconds pause = 0ms) {
    return [=](int s, const std::atomic<bool>& arret) {
        ServeurBrut::lireRequete(s);
        ServeurBrut::ecrire(s, entete);
        for (int i = 0; i < fois && !arret && ServeurBrut::ecrire(s, corps); ++i)
            std::this_thread::sleep_for(pause);
        while (!arret)
            std::this_thread::sleep_for(20ms);
    };
}

// Servers that misbehave in every way a network can, all called at once: each call must end
// in a transport error by the bound that is about it, and the main loop must keep ticking.
TEST(FautesDuServeur, ChaqueFauteFinitParSaBorneSansArreterLaBoucle) {
    const std::string mega(1 << 20, 'x');
    const std::vector<ServeurBrut::Conduite> fautes = {
        repondre(""), // silence
        [](int s, const auto&) {
            ServeurBrut::lireRequete(s);
            linger brutal{1, 0}; // close with a reset, not a goodbye
            setsockopt(s, SOL_SOCKET, SO_LINGER, &brutal, sizeof brutal);
        },
        repondre("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", "{", 1000, 200ms),
        repondre("HTTP/1.1 200 OK\r\nContent-Length: 2097152\r\n\r\n", mega, 2),
        repondre("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n", mega, 2),
    };

    BoucleQt boucle;
    ReglagesSqlite reglages(ReglagesSqlite::enMemoire);
    auto transport = std::make_shared<TransportCurl>(bornes);
    PortSature sature;
    std::vector<std::unique_ptr<ServeurBrut>> serveurs;
    std::vector<std::string> adresses;
    for (const auto& faute : fautes) {
        serveurs.push_back(std::make_unique<ServeurBrut>(faute));
        adresses.push_back(serveurs.back()->adresse());
    }
    adresses.push_back(sature.adresse());
    const std::size_t n = adresses.size();
    std::vector<std::unique_ptr<Api>> apis;
    std::vector<std::optional<ResultatApi<std::string>>> resultats(n);
    std::vector<std::chrono::milliseconds> durees(n);
    std::vector<int> tics(n);

    int compte = 0;
    auto minuterie = boucle.repeter(100ms, [&compte] { ++compte; });
    const auto debut = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < n; ++i) {
        apis.push_back(
            std::make_unique<Api>(adresses[i], std::nullopt, transport, boucle, reglages));
        apis[i]->appel("POST", "/api/enfant/battement", nlohmann::json::object(),
                       [&, i](ResultatApi<std::string> r) {
                           durees[i] = std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::steady_clock::now() - debut);
                           tics[i] = compte;
                           resultats[i] = std::move(r);
                       });
    }
    ASSERT_TRUE(test::attendreQue(
        [&] { return std::ranges::all_of(resultats, [](const auto& r) { return r.has_value(); }); },
        20s));

    std::vector<std::string> descriptions;
    for (std::size_t i = 0; i < n; ++i) {
        const auto& r = *resultats[i];
        ASSERT_FALSE(r) << adresses[i];
        ASSERT_TRUE(std::holds_alternative<ErreurTransport>(r.error())) << adresses[i];
        descriptions.push_back(decrire(r.error()));
    }
    // Silence ends at the inactivity bound, well before the total one.
    EXPECT_GE(durees[0], 1s);
    EXPECT_LT(durees[0], 5500ms);
    EXPECT_NE(descriptions[0].find("code 28"), std::string::npos);
    // A trickle keeps the inactivity bound quiet: only the total bound ends it.
    EXPECT_GE(durees[2], 5900ms);
    EXPECT_NE(descriptions[2].find("code 28"), std::string::npos);
    // The answers too large say so.
    EXPECT_NE(descriptions[3].find("1048576 octets"), std::string::npos);
    EXPECT_NE(descriptions[4].find("1048576 octets"), std::string::npos);
    // A connection that never completes ends at the connection bound.
    EXPECT_GE(durees[5], 1s);
    EXPECT_LT(durees[5], 2800ms);
    for (const auto& d : durees)
        EXPECT_LT(d, 9s);
    // While the silent server held its call, the 100 ms timer kept firing.
    EXPECT_GT(tics[0], static_cast<int>(durees[0] / 100ms) / 2);
}

// The server closes a kept-alive connection while the client sends its next request on it.
// libcurl itself tries again when it notices on the receiving side (no answer, a reset before
// any byte of answer); it gives up with error 55 when the send fails first, as it does when a
// body larger than the socket buffers is still going out. That one is tried again at once.
TEST(FautesDuServeur, UneConnexionGardeeQueLeServeurFermePendantLEnvoiEstRefaite) {
    std::atomic<int> connexions = 0;
    std::atomic<std::size_t> recu = 0;
    ServeurBrut serveur([&](int s, const auto&) {
        const std::string reponse = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";
        if (++connexions > 1) {
            recu = ServeurBrut::lireRequete(s).size();
            ServeurBrut::ecrire(s, reponse);
            return;
        }
        ServeurBrut::lireRequete(s);
        ServeurBrut::ecrire(s, reponse);
        pollfd p{s, POLLIN, 0};
        poll(&p, 1, 5000);
        char debut[16];
        recv(s, debut, sizeof debut, 0);
        shutdown(s, SHUT_WR);
        std::this_thread::sleep_for(50ms);
        // Closing with the request unread sends a reset.
    });
    TransportCurl transport(bornes);
    const std::string url = serveur.adresse() + "/api/enfant/battement";
    ASSERT_TRUE(transport.echanger({"POST", url, {}, "{}"}));
    const std::string gros(16u << 20, 'x');
    auto reponse = transport.echanger({"POST", url, {}, gros});
    ASSERT_TRUE(reponse) << reponse.error().message << ", code " << reponse.error().code;
    EXPECT_EQ(reponse->corps, "{}");
    EXPECT_EQ(connexions, 2) << "the first connection was not reused";
    EXPECT_GT(recu, gros.size());
}

} // namespace
} // namespace tavi
