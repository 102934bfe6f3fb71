#include "platform/qt/boucle_qt.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/api.h"
#include "server/transport_curl.h"
#include "support/application_qt.h"
#include "support/serveur_brut.h"

#include <gtest/gtest.h>
#include <iostream>
#include <sys/socket.h>
#include <thread>

namespace tavi {
namespace {

using namespace std::chrono_literals;
using test::ServeurBrut;

void attendreArret(const std::atomic<bool>& arret) {
    while (!arret)
        std::this_thread::sleep_for(20ms);
}

struct Faute {
    const char* nom;
    ServeurBrut::Conduite conduite;
};

// Servers that misbehave in every way a network can, all called at once with the agent's
// real bounds (connection 20 s, 20 s without a byte, 60 s in all, 8 MiB): each call must end
// in a transport error, and the main loop must keep ticking meanwhile.
TEST(FautesDuServeur, ChaqueFauteFinitEnErreurBorneeSansArreterLaBoucle) {
    const std::vector<Faute> fautes = {
        {"muet",
         [](int s, const auto& arret) {
             ServeurBrut::lireRequete(s);
             attendreArret(arret);
         }},
        {"coupure",
         [](int s, const auto&) {
             ServeurBrut::lireRequete(s);
             linger brutal{1, 0}; // close with a reset, not a goodbye
             setsockopt(s, SOL_SOCKET, SO_LINGER, &brutal, sizeof brutal);
         }},
        {"charabia",
         [](int s, const auto&) {
             ServeurBrut::lireRequete(s);
             ServeurBrut::ecrire(s, "n'importe quoi\r\n\r\n{}");
         }},
        {"goutte a goutte",
         [](int s, const auto& arret) {
             ServeurBrut::lireRequete(s);
             ServeurBrut::ecrire(s, "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
             while (!arret && ServeurBrut::ecrire(s, "{"))
                 std::this_thread::sleep_for(200ms);
         }},
        {"geant annonce",
         [](int s, const auto& arret) {
             ServeurBrut::lireRequete(s);
             ServeurBrut::ecrire(s, "HTTP/1.1 200 OK\r\nContent-Length: 9437184\r\n\r\n");
             const std::string mega(1 << 20, 'x');
             for (int i = 0; i < 9 && !arret && ServeurBrut::ecrire(s, mega); ++i) {
             }
         }},
        {"geant sans longueur",
         [](int s, const auto& arret) {
             ServeurBrut::lireRequete(s);
             ServeurBrut::ecrire(s, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
             const std::string mega(1 << 20, 'x');
             for (int i = 0; i < 9 && !arret && ServeurBrut::ecrire(s, mega); ++i) {
             }
         }},
    };

    BoucleQt boucle;
    ReglagesSqlite reglages(ReglagesSqlite::enMemoire);
    auto transport = std::make_shared<TransportCurl>();
    std::vector<std::unique_ptr<ServeurBrut>> serveurs;
    std::vector<std::unique_ptr<Api>> apis;
    std::vector<std::optional<ResultatApi<std::string>>> resultats(fautes.size());
    std::vector<std::chrono::milliseconds> durees(fautes.size());
    std::vector<int> tics(fautes.size());

    int compte = 0;
    auto minuterie = boucle.repeter(100ms, [&compte] { ++compte; });
    const auto debut = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < fautes.size(); ++i) {
        serveurs.push_back(std::make_unique<ServeurBrut>(fautes[i].conduite));
        apis.push_back(std::make_unique<Api>(serveurs[i]->adresse(), std::nullopt, transport,
                                             boucle, reglages));
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
        90s));

    for (std::size_t i = 0; i < fautes.size(); ++i) {
        const auto& r = *resultats[i];
        ASSERT_FALSE(r) << fautes[i].nom;
        ASSERT_TRUE(std::holds_alternative<ErreurTransport>(r.error())) << fautes[i].nom;
        std::cout << "[ figure ] " << fautes[i].nom << " : " << durees[i].count() << " ms, "
                  << decrire(r.error()) << ", " << tics[i] << " tics\n";
        RecordProperty(fautes[i].nom, std::to_string(durees[i].count()) + " ms");
    }
    // Bounded: nothing outlives the 60 s bound by more than scheduling noise.
    for (const auto& d : durees)
        EXPECT_LT(d, 75s);
    // The answers too large say so.
    EXPECT_NE(decrire(resultats[4]->error()).find("8388608 octets"), std::string::npos);
    EXPECT_NE(decrire(resultats[5]->error()).find("8388608 octets"), std::string::npos);
    // While the silent server held its call for many seconds, the 100 ms timer kept firing.
    EXPECT_GT(durees[0], 10s);
    EXPECT_GT(tics[0], static_cast<int>(durees[0] / 100ms) / 2);
}

} // namespace
} // namespace tavi
