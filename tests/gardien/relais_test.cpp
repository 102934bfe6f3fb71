#include "../integration/famille_locale.h"
#include "fausse_supervision.h"
#include "gardien/registre.h"
#include "gardien/service.h"
#include "server/transport_curl.h"
#include "support/serveur_http.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace tavi {
namespace {

using nlohmann::json;
using test::DossierTemporaire;

// A connection to the relay, as any process of the computer opens one.
class Client {
public:
    explicit Client(const std::string& chemin) {
        fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un adresse{};
        adresse.sun_family = AF_UNIX;
        std::strcpy(adresse.sun_path, chemin.c_str());
        const timeval attente{15, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &attente, sizeof attente);
        connecte = connect(fd, reinterpret_cast<sockaddr*>(&adresse), sizeof adresse) == 0;
    }
    ~Client() { close(fd); }
    void envoyer(const std::string& octets) {
        send(fd, octets.data(), octets.size(), MSG_NOSIGNAL);
    }
    // Everything until the guardian closes.
    std::string lireTout() {
        std::string recu;
        char tampon[4096];
        for (ssize_t n; (n = recv(fd, tampon, sizeof tampon, 0)) > 0;)
            recu.append(tampon, static_cast<std::size_t>(n));
        return recu;
    }
    int fd = -1;
    bool connecte = false;
};

std::string requete(const std::string& methode, const std::string& chemin,
                    const std::string& corps = "", const std::string& entetes = "") {
    return methode + " " + chemin + " HTTP/1.1\r\nHost: tavi-gardien\r\n" + entetes +
           "Content-Length: " + std::to_string(corps.size()) + "\r\n\r\n" + corps;
}

int statut(const std::string& reponse) {
    return reponse.size() > 12 ? std::atoi(reponse.c_str() + 9) : 0;
}
std::string corps(const std::string& reponse) {
    const auto fin = reponse.find("\r\n\r\n");
    return fin == std::string::npos ? "" : reponse.substr(fin + 4);
}

// The service loop on a thread of the test, with a test server as the family's and a
// supervision the test drives. SIGTERM ends it.
struct GardienEnFil {
    DossierTemporaire dossier;
    test::ServeurHttp serveur;
    test::FausseSupervision supervision;
    TransportCurl transport;
    std::thread fil;
    std::atomic<int> reponseServeur{200};
    std::string socket = (dossier / "run/relais").string();
    Registre registre{(dossier / "etat").string()};

    explicit GardienEnFil(const BornesService& bornes = {}) {
        // Blocked in every thread of the test (the test server's too), so that only the
        // service's signalfd takes it.
        sigset_t masque;
        sigemptyset(&masque);
        sigaddset(&masque, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &masque, nullptr);
        serveur.route("POST", "/api/auth/ordinateur", [](const auto&, auto& res) {
            res.set_content(R"({"jeton":"vrai-jeton","enfant":{"id":"e","prenom":"Léa"},)"
                            R"("ordinateur":{"id":"o","nom":"pc"}})",
                            "application/json");
        });
        for (const char* chemin : {"/api/enfant/battement", "/api/enfant/signal"})
            serveur.route("POST", chemin, [this](const auto& req, auto& res) {
                res.status = reponseServeur;
                if (req.get_header_value("Authorization") == "Bearer vrai-jeton")
                    res.set_header("X-Tavi-Jeton", "jeton-neuf");
                res.set_content("{}", "application/json");
            });
        serveur.demarrer();
        test::ecrireFichier(dossier / "conf", "serveur = " + serveur.adresse() + "/\n");
        fil = std::thread([this, bornes] {
            servir({socket, (dossier / "etat").string(), (dossier / "conf").string()}, supervision,
                   transport, bornes);
        });
        for (int i = 0; i < 500 && !Client(socket).connecte; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ~GardienEnFil() {
        kill(getpid(), SIGTERM);
        fil.join();
    }
    std::string echanger(const std::string& texte) {
        Client client(socket);
        client.envoyer(texte);
        return client.lireTout();
    }
    std::size_t requetesServeur(const std::string& chemin) {
        std::size_t n = 0;
        for (const auto& r : serveur.requetes())
            n += r.chemin == chemin;
        return n;
    }
};

const std::string json_ = "Content-Type: application/json\r\nX-Tavi-Installation: inst-1\r\n";
const std::string vole = "Authorization: Bearer vole\r\n";

TEST(RelaisGardien, LeJetonNeQuitteJamaisLeGardien) {
    GardienEnFil g;
    // Unpaired: only the pairing goes through.
    EXPECT_EQ(statut(g.echanger(requete("POST", "/api/enfant/signal", "{}", json_ + vole))), 401);
    EXPECT_EQ(g.requetesServeur("/api/enfant/signal"), 0u);

    const std::string appariement =
        g.echanger(requete("POST", "/api/auth/ordinateur", R"({"code":"1"})", json_ + vole));
    EXPECT_EQ(statut(appariement), 200);
    EXPECT_EQ(json::parse(corps(appariement))["jeton"], "gardien");
    EXPECT_EQ(appariement.find("vrai-jeton"), std::string::npos);
    EXPECT_FALSE(g.serveur.requetes().back().aEntete("Authorization"));
    const auto compte = g.registre.lire(geteuid());
    ASSERT_TRUE(compte && *compte);
    EXPECT_EQ((*compte)->jeton, "vrai-jeton");
    EXPECT_EQ((*compte)->prenom, "Léa");

    // The agent's own Authorization is replaced; the renewed token is kept, not shown.
    const std::string signal =
        g.echanger(requete("POST", "/api/enfant/signal", "{}", json_ + vole));
    EXPECT_EQ(statut(signal), 200);
    const auto envoyee = g.serveur.requetes().back();
    EXPECT_EQ(envoyee.entete("Authorization"), "Bearer vrai-jeton");
    EXPECT_EQ(envoyee.entete("X-Tavi-Installation"), "inst-1");
    EXPECT_EQ(signal.find("jeton-neuf"), std::string::npos);
    EXPECT_EQ(signal.find("X-Tavi-Jeton"), std::string::npos);
    EXPECT_EQ(g.registre.lire(geteuid())->value().jeton, "jeton-neuf");
    g.echanger(requete("POST", "/api/enfant/signal", "{}", json_));
    EXPECT_EQ(g.serveur.requetes().back().entete("Authorization"), "Bearer jeton-neuf");

    // One refusal may be the server's mistake; two in a row unpair.
    g.reponseServeur = 401;
    g.echanger(requete("POST", "/api/enfant/signal", "{}", json_));
    g.reponseServeur = 200;
    g.echanger(requete("POST", "/api/enfant/signal", "{}", json_));
    g.reponseServeur = 401;
    g.echanger(requete("POST", "/api/enfant/signal", "{}", json_));
    EXPECT_TRUE(g.registre.lire(geteuid())->has_value());
    EXPECT_EQ(statut(g.echanger(requete("POST", "/api/enfant/signal", "{}", json_))), 401);
    EXPECT_FALSE(g.registre.lire(geteuid())->has_value());
}

TEST(RelaisGardien, LeBattementPorteLeMembreDuGardienEtLeRendEnCasDEchec) {
    GardienEnFil g;
    ASSERT_TRUE(g.registre.ecrire({geteuid(), "moi", "vrai-jeton", "o", "Léa"}));
    const std::string battement =
        requete("POST", "/api/enfant/battement", R"({"actif":true})", json_);
    {
        std::lock_guard v(g.supervision.verrou);
        g.supervision.attendu = true;
    }
    // A copy the child started speaks for nobody while the guardian's agent is expected.
    EXPECT_EQ(statut(g.echanger(battement)), 403);
    EXPECT_EQ(g.requetesServeur("/api/enfant/battement"), 0u);

    {
        std::lock_guard v(g.supervision.verrou);
        g.supervision.agent = getpid();
    }
    g.reponseServeur = 500;
    EXPECT_EQ(statut(g.echanger(battement)), 500);
    const json envoye = json::parse(g.serveur.requetes().back().corps);
    EXPECT_EQ(envoye["actif"], true);
    EXPECT_EQ(envoye["gardien"]["agent"], true);
    EXPECT_EQ(envoye["gardien"]["pid"], getpid());
    g.reponseServeur = 200;
    EXPECT_EQ(statut(g.echanger(battement)), 200);

    // The agent's presence is said and kept open; one per process.
    Client presence(g.socket);
    presence.envoyer(requete("POST", "/gardien/presence"));
    char ligne[256] = {};
    ASSERT_GT(recv(presence.fd, ligne, sizeof ligne - 1, 0), 0);
    EXPECT_TRUE(std::string(ligne).ends_with("\r\n\r\nagent\n")) << ligne;
    EXPECT_EQ(statut(g.echanger(requete("POST", "/gardien/presence"))), 409);
    std::lock_guard v(g.supervision.verrou);
    ASSERT_EQ(g.supervision.rendus.size(), 1u);
    EXPECT_EQ(g.supervision.rendus[0], envoye["gardien"]);
    EXPECT_EQ(g.supervision.consignes.size(), 1u) << "only the answer that went through";
}

TEST(RelaisGardien, UneBorneDepasseeEstRepondueEtFermee) {
    BornesService bornes;
    bornes.requeteMs = 1000;
    bornes.connexionsParUid = 3;
    bornes.rafale = 8;
    bornes.debitParMinute = 1;
    GardienEnFil g(bornes);
    EXPECT_EQ(statut(g.echanger("GET /api/x HTTP/1.1\r\nA: " + std::string(20000, 'a'))), 431);
    {
        // Refused on its head alone: the guardian neither reads nor waits for the body.
        Client client(g.socket);
        client.envoyer("POST /api/enfant/battement HTTP/1.1\r\nContent-Length: 2000000\r\n\r\n");
        EXPECT_EQ(statut(client.lireTout()), 413);
    }
    {
        Client lent(g.socket);
        lent.envoyer("POST /api/enfant/signal HTTP/1.1\r\n");
        const auto debut = std::chrono::steady_clock::now();
        EXPECT_EQ(statut(lent.lireTout()), 408);
        EXPECT_LT(std::chrono::steady_clock::now() - debut, std::chrono::seconds(5));
    }
    std::vector<std::unique_ptr<Client>> ouverts;
    for (int i = 0; i < 3; ++i)
        ouverts.push_back(std::make_unique<Client>(g.socket));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_NE(Client(g.socket).lireTout().find("Trop de connexions"), std::string::npos);
    ouverts.clear();
    // The account's rate runs out soon after, whatever it asks.
    std::string reponse;
    for (int i = 0; i < 10 && reponse.find("Trop de requêtes") == std::string::npos; ++i)
        reponse = g.echanger(requete("GET", "/gardien/etat"));
    EXPECT_EQ(statut(reponse), 429);
}

// The real service as root, the real family server, and a second user of the computer who
// talks to the relay with curl: each uid is served as itself.
TEST(RelaisGardien, ChaqueCompteEstServiCommeLuiMeme) {
    if (geteuid() != 0) GTEST_SKIP() << "runuser et les fichiers de root demandent root";
    if (test::executer({"/usr/bin/id", "tavienfant"}).statut != 0)
        GTEST_SKIP() << "pas d'utilisateur tavienfant (useradd -m tavienfant)";
    test::FamilleLocale famille;
    famille.preparerLea();
    ASSERT_TRUE(famille.servir());
    DossierTemporaire d;
    chmod(d.chemin().c_str(), 0755);
    const std::string conf = (d / "conf").string(), relais = (d / "run/relais").string();
    ASSERT_EQ(
        test::executer({TAVI_GARDIEN_BINAIRE, "--conf", conf, "serveur", famille.adresse()}).statut,
        0);
    test::Processus gardien({TAVI_GARDIEN_BINAIRE, "--conf", conf, "--etat", (d / "etat").string(),
                             "--relais", relais});
    for (int i = 0; i < 500 && !Client(relais).connecte; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(test::modeDe(relais), 0666u);
    EXPECT_EQ(test::modeDe(d / "run"), 0755u);

    auto enfant = [&](const std::string& chemin, const std::string& corps) {
        return test::executer({"/usr/sbin/runuser", "-u", "tavienfant", "--", "/usr/bin/curl", "-s",
                               "-w", "\n%{http_code}", "--unix-socket", relais, "-H",
                               "Content-Type: application/json", "-H",
                               "X-Tavi-Installation: inst-1", "--data-binary", corps,
                               "http://tavi-gardien" + chemin})
            .out;
    };
    EXPECT_TRUE(enfant("/api/enfant/signal", "{}").ends_with("401"));
    const std::string appariement =
        enfant("/api/auth/ordinateur",
               json{{"code", famille.code()}, {"nom", "pc"}, {"version", "0.1"}}.dump());
    ASSERT_TRUE(appariement.ends_with("200")) << appariement;
    EXPECT_NE(appariement.find(R"("jeton":"gardien")"), std::string::npos);
    const auto compte = Registre((d / "etat").string()).lire(1001);
    ASSERT_TRUE(compte && *compte);
    EXPECT_EQ((*compte)->compte, "tavienfant");
    // Root is not the paired account; the child is, and the server knows its token.
    Client root(relais);
    root.envoyer(requete("POST", "/api/enfant/signal", "{}", json_));
    EXPECT_EQ(statut(root.lireTout()), 401);
    EXPECT_FALSE(enfant("/api/enfant/signal", "{}").ends_with("401"));

    const auto etat = test::executer(
        {TAVI_GARDIEN_BINAIRE, "--etat", (d / "etat").string(), "--relais", relais, "etat"});
    EXPECT_NE(etat.out.find("tavienfant"), std::string::npos) << etat.out;
    EXPECT_EQ(etat.out.find((*compte)->jeton), std::string::npos);
    EXPECT_EQ(gardien.arreter(), 0);
}

} // namespace
} // namespace tavi
