#include "banc_moteur.h"
#include "commun/texte.h"

using namespace tavi;
using namespace tavi::test;

TEST_F(BancMoteur, UnMessagePlusRecentResteSesHuitSecondes) {
    construire();
    moteur->dire("un");
    boucle.avancer(3s);
    moteur->dire("deux");
    boucle.avancer(5s);
    EXPECT_EQ(moteur->messageVoile(), "deux") << "the first message's timer leaves it";
    boucle.avancer(2999ms);
    EXPECT_EQ(moteur->messageVoile(), "deux");
    boucle.avancer(1ms);
    EXPECT_FALSE(moteur->messageVoile());
}

TEST_F(BancMoteur, UnTrousseauQuiNeRepondPasNeRetientNiLeTicNiLeVoileMaisLeBattementAttend) {
    relier({{"protegeMaintenant", true}});
    const int appelsDuTest = coffre.appelsDuFilPrincipal();
    coffre.suspendu.retenir();
    demarrer();
    int changements = 0;
    auto abonnement = moteur->observer([&] { ++changements; });
    secondes(40);
    EXPECT_EQ(changements, 40);
    EXPECT_TRUE(voile().affiche()) << "the pairing is known from the defaults";
    EXPECT_TRUE(battements().empty());
    EXPECT_EQ(coffre.appelsDuFilPrincipal(), appelsDuTest) << "the store is never waited for";

    coffre.suspendu.relacher();
    boucle.terminerArrierePlan();
    secondes(1);
    const auto requetes = transport->requetes(cheminBattement);
    ASSERT_EQ(requetes.size(), 1u) << "the token in hand, the next tick beats";
    EXPECT_EQ(requetes[0].entetes.at("Authorization"), "Bearer jeton-1");
}

TEST_F(BancMoteur, RejoindreEcritLeJumelageEnregistreLAgentEtBatMemeAvecUnTrousseauVerrouille) {
    const std::string rejoindre = "/api/auth/ordinateur";
    const auto accepte = FauxTransport::ok({{"jeton", "jeton-neuf"},
                                            {"enfant", {{"id", "e1"}, {"prenom", "Lina"}}},
                                            {"ordinateur", {{"id", "ordi-7"}, {"nom", "Salon"}}}});
    std::optional<ResultatApi<Rejoindre>> issue;
    const auto noter = [&](ResultatApi<Rejoindre> r) { issue = std::move(r); };
    demarrer();

    transport->enFile(rejoindre, FauxTransport::statut(400, "Code inconnu"));
    moteur->rejoindre("000000", noter);
    boucle.terminerArrierePlan();
    ASSERT_TRUE(issue && !*issue);
    EXPECT_FALSE(moteur->relie());
    EXPECT_FALSE(reglages.texte("ordinateur_id"));
    EXPECT_EQ(demarrage.enregistrements, 0);

    coffre.verrouille = true;
    transport->enFile(rejoindre, accepte);
    repondre({{"protegeMaintenant", true}});
    issue.reset();
    moteur->rejoindre("123456", noter);
    boucle.terminerArrierePlan();
    ASSERT_TRUE(issue && *issue);
    EXPECT_TRUE(moteur->relie());
    EXPECT_EQ(reglages.texte("ordinateur_id"), "ordi-7");
    EXPECT_EQ(demarrage.enregistrements, 1);
    EXPECT_EQ(battements().size(), 1u);
    EXPECT_TRUE(voile().affiche()) << "the rule set is in force once pairing is done";
    EXPECT_TRUE(moteur->jetonEnAttente());
    EXPECT_EQ(moteur->messageVoile(),
              texte("Le trousseau est verrouillé : déverrouille-le pour que Tavi Home garde le "
                    "lien avec ta famille."));

    coffre.verrouille = false;
    battreAuProchainTic();
    EXPECT_FALSE(moteur->jetonEnAttente()) << "offered again with the next heartbeat";
    EXPECT_EQ(Trousseau::lire(coffre), "jeton-neuf");

    moteur->oublier();
    EXPECT_FALSE(voile().affiche()) << "forgetting withdraws the rule veil at once";
    EXPECT_FALSE(moteur->relie());
    boucle.terminerArrierePlan();
    EXPECT_EQ(demarrage.desenregistrements, 1);
    EXPECT_FALSE(Trousseau::lire(coffre));

    demarrage.enregistre = true;
    transport->enFile(rejoindre, accepte);
    moteur->rejoindre("654321", noter);
    boucle.terminerArrierePlan();
    EXPECT_TRUE(moteur->relie());
    EXPECT_EQ(demarrage.enregistrements, 1) << "an agent already active is left as it is";
}
