// A tavi-famille server on a free loopback port, SQLite in a temporary folder, and real HTTP.
#include "outils_test.h"
#include "temps.h"

#include <gtest/gtest.h>

using namespace tavi::famille;
using namespace tavi::famille::essai;
using nlohmann::json;

namespace {

json demandeAppairage(const std::string& code) {
    return {{"code", code}, {"nom", "Portable"}, {"version", "0.1.0"}};
}

} // namespace

TEST(Appairage, UnCodeValideSertUneSeuleFoisEtUnCodeExpireOuInconnuEstRefuse) {
    ServeurEssai serveur;
    auto lea = serveur.depot().ajouterEnfant("Léa", "fr", "Europe/Paris", maintenantMs());
    auto code = serveur.depot().creerCode("Léa", maintenantMs());
    EXPECT_EQ(code.code.size(), 8u);
    EXPECT_EQ(code.code.find_first_of("01ILO"), std::string::npos) << code.code;
    auto client = serveur.client();

    // The child may type it in lower case with a dash between the two halves.
    std::string tape = code.code.substr(0, 4) + "-" + code.code.substr(4);
    for (auto& c : tape)
        c = static_cast<char>(std::tolower(c));
    auto reponse = poster(client, "/api/auth/ordinateur", demandeAppairage(tape));
    ASSERT_TRUE(reponse);
    ASSERT_EQ(reponse->status, 200) << reponse->body;
    json corps = corpsJson(reponse);
    EXPECT_EQ(corps.at("enfant"), json({{"id", lea.id}, {"prenom", "Léa"}, {"langue", "fr"}}));

    // The token is stored only as its hash.
    auto lecture =
        serveur.depot().base().requete("SELECT COUNT(*) FROM jetons WHERE empreinte = ?");
    lecture.avec(corps.at("jeton").get<std::string>());
    ASSERT_TRUE(lecture.ligne());
    EXPECT_EQ(lecture.entier(0), 0);

    auto vieux = serveur.depot().creerCode("Léa", maintenantMs() - Depot::dureeCodeMs - 1000);
    for (const std::string& refuse : {code.code, vieux.code, std::string("ABCD2345")}) {
        auto refus = poster(client, "/api/auth/ordinateur", demandeAppairage(refuse));
        EXPECT_EQ(refus->status, 400);
        EXPECT_EQ(detail(refus), "Code inconnu ou expiré.");
    }
    auto sansInstallation =
        poster(client, "/api/auth/ordinateur", demandeAppairage("ABCD2345"), {}, "");
    EXPECT_EQ(sansInstallation->status, 400);
    EXPECT_NE(detail(sansInstallation).find("X-Tavi-Installation"), std::string::npos);
}

TEST(Appairage, DixEchecsEnDixMinutesBloquentLInstallationEtLAdresse) {
    ServeurEssai serveur;
    serveur.depot().ajouterEnfant("Léa", "fr", "Europe/Paris", maintenantMs());
    auto client = serveur.client();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(poster(client, "/api/auth/ordinateur", demandeAppairage("ZZZZ2222"), {}, "pc-1")
                      ->status,
                  400);
    // Even a good code is refused now, and the detail says to wait; from another installation
    // at the same address too.
    auto bon = serveur.depot().creerCode("Léa", maintenantMs());
    auto bloque = poster(client, "/api/auth/ordinateur", demandeAppairage(bon.code), {}, "pc-1");
    EXPECT_EQ(bloque->status, 429);
    EXPECT_FALSE(detail(bloque).empty());
    EXPECT_EQ(
        poster(client, "/api/auth/ordinateur", demandeAppairage(bon.code), {}, "pc-2")->status,
        429);
}

TEST(Jetons, UnJetonRenouveleGardeLAncienValideJusquAuPremierUsageDuNouveau) {
    OptionsServeur options;
    options.renouvelerApresMs = 0; // every answer renews: each step below sees a renewal
    ServeurEssai serveur(options);
    std::string premier = serveur.enfantEtOrdinateur("Léa", "pc-1");
    auto client = serveur.client();

    auto r1 = poster(client, "/api/enfant/battement", battement(1), premier);
    ASSERT_EQ(r1->status, 200);
    std::string deuxieme = r1->get_header_value("X-Tavi-Jeton");
    ASSERT_EQ(deuxieme.size(), 43u);
    EXPECT_NE(deuxieme, premier);

    // The answer carrying the second token was lost: the first still works and gets another.
    auto r2 = poster(client, "/api/enfant/battement", battement(2), premier);
    ASSERT_EQ(r2->status, 200);
    std::string troisieme = r2->get_header_value("X-Tavi-Jeton");
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(2), deuxieme)->status, 401)
        << "a successor never presented is replaced by the next one";

    // Presenting the new token retires the old one.
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(3), troisieme)->status, 200);
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(3), premier)->status, 401);

    // A refusal never hands out a token.
    auto refus = posterTexte(client, "/api/enfant/battement", "[]", troisieme);
    EXPECT_EQ(refus->status, 400);
    EXPECT_FALSE(refus->has_header("X-Tavi-Jeton"));
}

TEST(Jetons, UnJetonNOuvreQueLesDonneesDeSonEnfantTantQueSonOrdinateurEstLa) {
    ServeurEssai serveur;
    std::string jetonLea = serveur.enfantEtOrdinateur("Léa", "pc-lea");
    std::string jetonTom = serveur.enfantEtOrdinateur("Tom", "pc-tom");
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 60; });
    serveur.depot().modifier("Tom", [](Enfant& e) {
        e.reglages.limiteJourMin = 60;
        e.tirelireMin = 30;
    });
    auto client = serveur.client();

    auto lea = poster(client, "/api/enfant/battement", battement(40), jetonLea);
    EXPECT_FALSE(lea->has_header("X-Tavi-Jeton")) << "renewed long before its time";
    EXPECT_EQ(corpsJson(lea).at("prenom"), "Léa");
    auto tom = corpsJson(poster(client, "/api/enfant/battement", battement(5), jetonTom));
    EXPECT_EQ(tom.at("reste_jour_min"), 55.0) << "Léa's use must not count for Tom";

    // Léa's token spends Léa's piggy bank (empty), never Tom's.
    auto depense = poster(client, "/api/enfant/tirelire/utiliser", {{"minutes", 10}}, jetonLea);
    EXPECT_EQ(depense->status, 409);
    EXPECT_EQ(serveur.depot().enfant("Tom").tirelireMin, 30.0);

    for (const std::string& faux : {std::string(), std::string("inconnu"), jetonLea + "x"}) {
        auto refus = poster(client, "/api/enfant/battement", battement(1), faux);
        EXPECT_EQ(refus->status, 401);
        EXPECT_NE(detail(refus).find("relié à ta famille"), std::string::npos);
    }
    // A computer the parents removed loses its access at once.
    std::string ordinateurLea;
    for (const auto& ligne : serveur.depot().rapport("Léa", maintenantMs()))
        if (ligne.contains("ordinateur")) ordinateurLea = ligne["ordinateur"]["id"];
    serveur.depot().retirerOrdinateur(ordinateurLea);
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(41), jetonLea)->status, 401);
    EXPECT_EQ(poster(client, "/api/enfant/battement", battement(6), jetonTom)->status, 200);
}
