// A tavi-famille server on a free loopback port, SQLite in a temporary folder, and real HTTP.
#include "outils_test.h"
#include "prise_test.h"
#include "temps.h"

using namespace tavi::famille;
using namespace tavi::famille::essai;
using namespace std::chrono_literals;
using nlohmann::json;

namespace {

json demandeAppairage(const std::string& code) {
    return {{"code", code}, {"nom", "Portable"}, {"version", "0.1.0"}};
}

class Jetons : public AvecLea {};

} // namespace

TEST(Appairage, UnCodeValideSertUneSeuleFoisEtUnCodeExpireOuInconnuEstRefuse) {
    ServeurEssai serveur;
    auto lea = serveur.depot().ajouterEnfant("Léa", "fr", "Europe/Paris", maintenantMs());
    auto code = serveur.depot().creerCode("Léa", maintenantMs());
    auto client = serveur.client();

    // The child may type it in lower case with a dash between the two halves.
    std::string tape = code.code.substr(0, 4) + "-" + code.code.substr(4);
    for (auto& c : tape)
        c = static_cast<char>(std::tolower(c));
    auto reponse = poster(client, "/api/auth/ordinateur", demandeAppairage(tape));
    ASSERT_EQ(reponse->status, 200) << reponse->body;
    json corps = corpsJson(reponse);
    EXPECT_EQ(corps.at("enfant"), json({{"id", lea.id}, {"prenom", "Léa"}, {"langue", "fr"}}));
    const std::string jeton = corps.at("jeton");
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM jetons WHERE empreinte = '" + jeton + "'"), 0)
        << "the token is stored only as its hash";

    auto vieux = serveur.depot().creerCode("Léa", maintenantMs() - Depot::dureeCodeMs - 1000);
    for (const std::string& refuse : {code.code, vieux.code, std::string("ABCD2345")})
        EXPECT_EQ(poster(client, "/api/auth/ordinateur", demandeAppairage(refuse))->status, 400);
    EXPECT_EQ(poster(client, "/api/auth/ordinateur", demandeAppairage("ABCD2345"), {}, "")->status,
              400)
        << "without an installation";
}

TEST(Appairage, LesEchecsSontBornesParInstallationParAdresseEtPourLaFamille) {
    ServeurEssai serveur;
    serveur.depot().ajouterEnfant("Léa", "fr", "Europe/Paris", maintenantMs());
    const auto essayer = [&](const std::string& source, const std::string& installation,
                             const std::string& code = "ZZZZ2222") {
        Prise prise(serveur.port(), source);
        prise.envoyer(
            requeteBrute("/api/auth/ordinateur", demandeAppairage(code).dump(),
                         "Connection: close\r\nX-Tavi-Installation: " + installation + "\r\n"));
        return statutHttp(prise.lire(5s));
    };
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(essayer("127.0.0.2", "pc-1"), 400);
    // Even a good code is refused now: to the installation from elsewhere, and to another
    // installation at the same address.
    const std::string bon = serveur.depot().creerCode("Léa", maintenantMs()).code;
    EXPECT_EQ(essayer("127.0.0.3", "pc-1", bon), 429);
    EXPECT_EQ(essayer("127.0.0.2", "pc-2", bon), 429);

    // Failures from many addresses, each below its own bound, do not lock the family out: a
    // good code from a fresh address still pairs.
    for (int i = 0; i < 140; ++i)
        ASSERT_EQ(essayer("127.0.4." + std::to_string(i / 5 + 1), "pc-x" + std::to_string(i)), 400)
            << i;
    EXPECT_EQ(essayer("127.0.5.1", "pc-neuf", bon), 200);
}

TEST(Renouvellement, UnJetonRenouveleGardeLAncienValideJusquAuPremierUsageDuNouveau) {
    OptionsServeur options;
    options.renouvelerApresMs = 0; // every answer renews: each step below sees a renewal
    ServeurEssai serveur(options);
    std::string premier = serveur.enfantEtOrdinateur("Léa", "pc-1");
    auto client = serveur.client();
    const auto battre = [&](const std::string& jeton) {
        return poster(client, "/api/enfant/battement", battement(1), jeton);
    };

    auto r1 = battre(premier);
    ASSERT_EQ(r1->status, 200);
    std::string deuxieme = r1->get_header_value("X-Tavi-Jeton");
    ASSERT_NE(deuxieme, "");

    // The answer carrying the second token was lost: the first still works and gets another.
    auto r2 = battre(premier);
    ASSERT_EQ(r2->status, 200);
    std::string troisieme = r2->get_header_value("X-Tavi-Jeton");
    EXPECT_EQ(battre(deuxieme)->status, 401)
        << "a successor never presented is replaced by the next one";

    // Presenting the new token retires the old one.
    EXPECT_EQ(battre(troisieme)->status, 200);
    EXPECT_EQ(battre(premier)->status, 401);

    // A refusal never hands out a token.
    auto refus = posterTexte(client, "/api/enfant/battement", "[]", troisieme);
    EXPECT_EQ(refus->status, 400);
    EXPECT_FALSE(refus->has_header("X-Tavi-Jeton"));
}

TEST_F(Jetons, UnJetonNOuvreQueLesDonneesDeSonEnfantTantQueSonOrdinateurEstLa) {
    std::string jetonTom = serveur.enfantEtOrdinateur("Tom", "pc-tom");
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 60; });
    serveur.depot().modifier("Tom", [](Enfant& e) {
        e.reglages.limiteJourMin = 60;
        e.tirelireMin = 30;
    });

    auto lea = battre(battement(40));
    EXPECT_FALSE(lea->has_header("X-Tavi-Jeton")) << "renewed long before its time";
    EXPECT_EQ(corpsJson(lea).at("prenom"), "Léa");
    auto tom = corpsJson(poster(client, "/api/enfant/battement", battement(5), jetonTom));
    EXPECT_EQ(tom.at("reste_jour_min"), 55.0) << "Léa's use must not count for Tom";

    // Léa's token spends Léa's piggy bank (empty), never Tom's.
    auto depense = poster(client, "/api/enfant/tirelire/utiliser", {{"minutes", 10}}, jeton);
    EXPECT_EQ(depense->status, 409);
    EXPECT_EQ(serveur.depot().enfant("Tom").tirelireMin, 30.0);

    for (const std::string& faux : {std::string(), std::string("inconnu"), jeton + "x"})
        EXPECT_EQ(poster(client, "/api/enfant/battement", battement(1), faux)->status, 401);
    // A computer the parents removed loses its access at once.
    serveur.depot().retirerOrdinateur(serveur.lignes("ordinateur").at(0).at("id"));
    EXPECT_EQ(battre(battement(41))->status, 401);
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(6), jetonTom)->status, 200);
}
