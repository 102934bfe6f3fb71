// A tavi-famille server on a free loopback port, SQLite in a temporary folder, and real HTTP.
#include "outils_test.h"
#include "temps.h"

#include <cstdlib>

using namespace tavi::famille;
using namespace tavi::famille::essai;
using nlohmann::json;

namespace {

json demandeTemps(int minutes) {
    return {{"type", "temps"}, {"minutes", minutes}, {"texte", "Sur mon ordinateur"}};
}

class Demandes : public AvecLea {};

} // namespace

TEST_F(Demandes, UneDemandeAccordeeAjouteSesMinutesUneSeuleFoisEtDixEnAttenteSuffisent) {
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 60; });
    auto reponse = poster(client, "/api/enfant/demandes", demandeTemps(15), jeton);
    ASSERT_EQ(reponse->status, 201);
    auto id = std::stoll(corpsJson(reponse).at("id").get<std::string>());
    serveur.depot().accorder(id, 20, maintenantMs());
    EXPECT_THROW(serveur.depot().accorder(id, std::nullopt, maintenantMs()), ErreurFamille);
    EXPECT_THROW(serveur.depot().refuser(id, maintenantMs()), ErreurFamille);
    EXPECT_EQ(consigne(60).at("reste_jour_min"), 20.0);

    for (const json& faux :
         {json{{"type", "temps"}, {"minutes", "15"}}, json{{"type", "glace"}, {"minutes", 5}}})
        EXPECT_EQ(poster(client, "/api/enfant/demandes", faux, jeton)->status, 400) << faux.dump();
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(poster(client, "/api/enfant/demandes", demandeTemps(5), jeton)->status, 201);
    EXPECT_EQ(poster(client, "/api/enfant/demandes", demandeTemps(5), jeton)->status, 429);
}

TEST_F(Demandes, DepenserDeplaceLesMinutesDeLaTirelireVersLaJournee) {
    serveur.depot().modifier("Léa", [](Enfant& e) { e.tirelireMin = 25; });
    auto depenser = [&](const json& minutes) {
        return poster(client, "/api/enfant/tirelire/utiliser", {{"minutes", minutes}}, jeton);
    };
    EXPECT_EQ(depenser(10)->status, 409) << "without a limit the minutes would be wasted";
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 30; });
    EXPECT_EQ(depenser(26)->status, 409);
    EXPECT_EQ(depenser(2.5)->status, 400);

    ASSERT_EQ(depenser(10)->status, 200);
    json c = consigne(30);
    EXPECT_EQ(c.at("tirelire_min"), 15.0);
    EXPECT_EQ(c.at("reste_jour_min"), 10.0);
}

TEST(Ecoute, UnSecondServeurSurLeMemePortEchoueAuLieuDeLePartager) {
    ServeurEssai premier;
    DossierTemporaire dossier;
    OptionsServeur options;
    options.port = premier.port();
    Serveur second((dossier / "autre.db").string(), options);
    EXPECT_THROW(second.demarrer(), ErreurFamille);
}

TEST(Ecoute, AvecUnCertificatLeServeurRepondEnHttps) {
    DossierTemporaire dossier;
    auto cle = dossier / "cle.pem";
    auto certificat = dossier / "certificat.pem";
    std::string commande = "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=localhost"
                           " -keyout " +
                           cle.string() + " -out " + certificat.string() + " >/dev/null 2>&1";
    if (std::system(commande.c_str()) != 0) GTEST_SKIP() << "openssl ne crée pas de certificat ici";
    OptionsServeur options;
    options.certificat = certificat.string();
    options.cle = cle.string();
    ServeurEssai serveur(options);
    httplib::SSLClient client("127.0.0.1", serveur.port());
    client.enable_server_certificate_verification(false);
    auto reponse = client.Post("/api/enfant/battement", "{}", "application/json");
    ASSERT_TRUE(reponse) << httplib::to_string(reponse.error());
    EXPECT_EQ(reponse->status, 401);
    httplib::Client clair("127.0.0.1", serveur.port());
    EXPECT_FALSE(clair.Post("/api/auth/ordinateur", "{}", "application/json"))
        << "plain HTTP must not be answered on a TLS port";
}
