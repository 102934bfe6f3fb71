// A tavi-famille server on a free loopback port, SQLite in a temporary folder, and raw TCP
// connections from several loopback addresses playing the attacker.
#include "adresse_client.h"
#include "limiteur.h"
#include "outils_test.h"
#include "prise_test.h"
#include "temps.h"

#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>

using namespace tavi::famille;
using namespace tavi::famille::essai;
using namespace std::chrono_literals;
using nlohmann::json;

namespace {
class Defenses : public AvecLea {};
} // namespace

TEST_F(Defenses, DesConnexionsMuettesOuLentesSontCoupeesSansRetarderUnVraiBattement) {
    // 20 addresses of 10: one that sends nothing, nine that dribble a head a byte a second.
    std::vector<std::unique_ptr<Prise>> lentes;
    for (int a = 0; a < 20; ++a)
        for (int i = 0; i < 10; ++i)
            lentes.push_back(
                std::make_unique<Prise>(serveur.port(), "127.0.3." + std::to_string(a + 1)));
    std::string tete = "POST /api/enfant/signal HTTP/1.1\r\nX-Lent: ";
    EXPECT_EQ(battre(battement(1))->status, 200);

    bool toutesCoupees = false;
    for (std::size_t octet = 0; !toutesCoupees && octet < 30; ++octet) {
        toutesCoupees = true;
        for (std::size_t i = 0; i < lentes.size(); ++i) {
            if (i % 10 != 0) lentes[i]->envoyer(std::string(1, tete[octet % tete.size()]));
            lentes[i]->lire(0ms);
            toutesCoupees = toutesCoupees && lentes[i]->fermee;
        }
        if (!toutesCoupees) std::this_thread::sleep_for(1s);
    }
    EXPECT_TRUE(toutesCoupees) << "a head still not whole after 30 s was kept open";
    EXPECT_EQ(battre(battement(2))->status, 200)
        << "a kept-alive connection that sent a whole request is not cut by the head deadline";
}

TEST_F(Defenses, UnEnTeteSansFinEstRefuseEtLaConnexionFermee) {
    Prise flot(serveur.port(), "127.0.0.2");
    flot.envoyer("POST /api/enfant/signal HTTP/1.1\r\nHost: x\r\n");
    std::string lignes;
    for (int i = 0; i < 1000; ++i)
        lignes += "X-Ligne-" + std::to_string(i) + ": " + std::string(40, 'a') + "\r\n";
    for (int envoi = 0; envoi < 200 && flot.envoyer(lignes); ++envoi) {
    }
    EXPECT_EQ(statutHttp(flot.lire(5s)), 431);
    EXPECT_TRUE(flot.fermee);
}

TEST_F(Defenses, UnRefusFermeLaConnexionSansLireLaRequeteQuiSuit) {
    std::string signal = json{{"nature", "site_bloque"}, {"detail", "exemple.fr"}}.dump();
    std::string suivante =
        requeteBrute("/api/enfant/signal", signal, "Authorization: Bearer " + jeton + "\r\n");

    // Over 1 MiB in chunks, then a second request on the same connection.
    Prise morceaux(serveur.port());
    morceaux.envoyer("POST /api/enfant/signal HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " +
                     jeton + "\r\nTransfer-Encoding: chunked\r\n\r\n");
    std::string morceau = "10000\r\n" + std::string(0x10000, ' ') + "\r\n";
    for (int i = 0; i < 17 && morceaux.envoyer(morceau); ++i) {
    }
    morceaux.envoyer("0\r\n\r\n" + suivante);
    std::string reponse = morceaux.lire(5s);
    EXPECT_EQ(statutHttp(reponse), 400);
    EXPECT_NE(reponse.find("16 Kio"), std::string::npos) << "only a heartbeat may be large";
    EXPECT_TRUE(morceaux.fermee);

    // A wrong method, an unknown path, a negative or folded length, no Host, an endpoint's
    // refusal, a bad token with a body yet to come, too many headers: each refused, and closed.
    const std::string signalVide = "POST /api/enfant/signal HTTP/1.1\r\nHost: x\r\n";
    std::string nombreux = signalVide;
    for (int i = 0; i < 101; ++i)
        nombreux += "X-" + std::to_string(i) + ": 1\r\n";
    const std::vector<std::pair<std::string, int>> refus = {
        {"GET /api/enfant/battement HTTP/1.1\r\nHost: x\r\n\r\n", 405},
        {"POST /api/rien HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}", 404},
        {signalVide + "Content-Length: -5\r\n\r\n", 400},
        {signalVide + "Authorization: Bearer " + jeton + "\r\nContent-Length:\r\n " +
             std::to_string(signal.size()) + "\r\n\r\n" + signal,
         400},
        {"POST /api/enfant/signal HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", 400},
        {signalVide + "Authorization: Bearer " + jeton + "\r\nContent-Length: 2\r\n\r\n{}", 400},
        {"POST /api/enfant/battement HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer faux\r\n"
         "Content-Length: 1048576\r\n\r\n",
         401},
        {nombreux + "Content-Length: 2\r\n\r\n{}", 431},
    };
    for (const auto& [texte, attendu] : refus) {
        Prise prise(serveur.port());
        prise.envoyer(texte + suivante);
        reponse = prise.lire(5s);
        EXPECT_EQ(statutHttp(reponse), attendu) << texte;
        EXPECT_TRUE(prise.fermee) << texte;
        EXPECT_NE(reponse.find("\"detail\""), std::string::npos) << texte;
    }
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM signaux"), 0)
        << "a request sent after a refused one was run";

    Prise absolue(serveur.port());
    absolue.envoyer(suivante.replace(5, 0, "http://famille.exemple:8080"));
    EXPECT_EQ(statutHttp(absolue.lire(1s)), 204) << "a target in absolute form";
}

TEST(Corps, PasseLeBudgetDesCorpsEnCoursUneRequeteEstRefuseeEt503) {
    OptionsServeur options;
    options.octetsCorpsEnCours = 2 * 1024 * 1024;
    ServeurEssai serveur(options);
    const std::string jeton = serveur.enfantEtOrdinateur("Léa", "pc-1");
    const std::string tete = "POST /api/enfant/battement HTTP/1.1\r\nHost: x\r\nAuthorization: "
                             "Bearer " +
                             jeton + "\r\nContent-Length: 1048576\r\n\r\n";
    std::vector<std::unique_ptr<Prise>> corps;
    for (int i = 0; i < 3; ++i) {
        corps.push_back(std::make_unique<Prise>(serveur.port()));
        corps.back()->envoyer(tete);
    }
    int refusees = 0;
    for (auto& prise : corps) {
        std::string reponse = prise->lire(1s);
        refusees += statutHttp(reponse) == 503 && prise->fermee &&
                    reponse.find("Retry-After") != std::string::npos;
    }
    EXPECT_EQ(refusees, 1) << "two unfinished bodies of 1 MiB fill a budget of 2 MiB";
    auto client = serveur.client();
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(1), jeton)->status, 200)
        << "a plain heartbeat is not held up by large bodies";
    corps.clear();
    std::this_thread::sleep_for(200ms);
    Prise apres(serveur.port());
    apres.envoyer(tete);
    apres.lire(1s);
    EXPECT_FALSE(apres.fermee) << "the bodies given up gave their share back";
}

TEST(Connexions, UnServeurPleinCoupeLaPlusVieilleConnexionQuiNAJamaisFiniUneRequete) {
    OptionsServeur options;
    options.connexionsTotal = 12;
    ServeurEssai serveur(options);
    const std::string battre =
        requeteBrute("/api/enfant/battement", battement(1).dump(),
                     "Authorization: Bearer " + serveur.enfantEtOrdinateur("Léa", "pc-1") + "\r\n");
    Prise agent(serveur.port(), "127.0.8.1");
    agent.envoyer(battre);
    EXPECT_EQ(statutHttp(agent.lire(500ms)), 200);
    std::vector<std::unique_ptr<Prise>> muettes;
    for (int i = 0; i < 11; ++i)
        muettes.push_back(std::make_unique<Prise>(serveur.port(), "127.0.9." + std::to_string(i)));

    Prise nouvelle(serveur.port(), "127.0.10.1");
    nouvelle.envoyer(requeteBrute("/api/enfant/signal", "{}"));
    EXPECT_EQ(statutHttp(nouvelle.lire(5s)), 401) << "the newcomer was turned away";
    muettes[0]->lire(1s);
    muettes[1]->lire(0ms);
    EXPECT_TRUE(muettes[0]->fermee) << "the oldest silent connection made room";
    EXPECT_FALSE(muettes[1]->fermee);
    agent.envoyer(battre);
    EXPECT_EQ(statutHttp(agent.lire(500ms)), 200) << "an agent's kept-alive connection stays";
}

TEST(Limiteur, LesEchecsDeToutesLesClesComptentPourLaFamillePendantLaFenetre) {
    Limiteur limiteur(10, 30, 60000);
    for (int i = 0; i < 30; ++i) {
        EXPECT_FALSE(limiteur.bloque({"cle " + std::to_string(i)}, 1000));
        limiteur.noterEchec({"cle " + std::to_string(i)}, 1000);
    }
    EXPECT_TRUE(limiteur.bloque({"neuve"}, 1000));
    EXPECT_FALSE(limiteur.bloque({"neuve"}, 61000));
}

TEST(Connexions, UneAdresseNOuvrePasPlusQueSonPlafondDeConnexionsEtLArretNeLesAttendPas) {
    auto serveur = std::make_unique<ServeurEssai>();
    std::vector<std::unique_ptr<Prise>> prises;
    for (int i = 0; i < 40; ++i)
        prises.push_back(std::make_unique<Prise>(serveur->port(), "127.0.0.2"));
    int coupees = 0;
    for (auto& prise : prises) {
        prise->lire(50ms);
        coupees += prise->fermee;
    }
    EXPECT_EQ(coupees, 8) << "32 connections per address";
    auto client = serveur->client();
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(1))->status, 401)
        << "another address is still served";

    auto debut = std::chrono::steady_clock::now();
    serveur.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - debut, 3s) << "the stop waited out idle clients";

    EXPECT_EQ(cleAdresse("2001:db8:1:2:aaaa::1"), cleAdresse("2001:db8:1:ff:bbbb::9")) << "/56";
    EXPECT_NE(cleAdresse("2001:db8:1:2::1"), cleAdresse("2001:db8:1:102::1"));
    EXPECT_EQ(cleAdresse("::ffff:192.0.2.7"), "192.0.2.7");
}

TEST_F(Defenses, UnOrdinateurNeRemplitPasLeDisqueMaisRecoitSaConsigne) {
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 60; });
    std::int64_t heure = maintenantMs() / 3600000 * 3600000;
    auto avecSites = [&](int premier, int nombre) {
        json corps = battement(10);
        corps["sites"] = json::array();
        for (int i = premier; i < premier + nombre; ++i)
            corps["sites"].push_back(
                {{"d", "s" + std::to_string(i) + ".fr"}, {"p", heure}, {"f", heure}, {"s", 1}});
        return corps;
    };
    EXPECT_EQ(corpsJson(battre(avecSites(0, 6000))).at("reste_jour_min"), 50.0);
    EXPECT_EQ(battre(avecSites(0, 7000))->status, 200);
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM sites"), Depot::quotaJour.sites);

    json signal = {{"nature", "site_bloque"}, {"detail", "exemple.fr"}};
    for (std::int64_t i = 0; i < Depot::quotaJour.signaux; ++i)
        ASSERT_EQ(poster(client, "/api/enfant/signal", signal, jeton)->status, 204);
    EXPECT_EQ(poster(client, "/api/enfant/signal", signal, jeton)->status, 429);
}

TEST_F(Defenses, LaBaseEtSesCompagnonsNeSontLisiblesQueParLeProprietaire) {
    auto mode = [](const std::filesystem::path& chemin) {
        struct stat etat {};
        return stat(chemin.c_str(), &etat) == 0 ? etat.st_mode & 0777 : 0;
    };
    for (const char* suffixe : {"", "-wal", "-shm"})
        EXPECT_EQ(mode(serveur.base().string() + suffixe), 0600u) << suffixe;
    DossierTemporaire dossier;
    auto ancienne = dossier / "ancienne.db";
    { Depot(ancienne.string(), Base::Ouverture::creer); }
    std::filesystem::permissions(ancienne, std::filesystem::perms(0644));
    Depot rouverte(ancienne.string(), Base::Ouverture::existante);
    EXPECT_EQ(mode(ancienne), 0600u);
}
