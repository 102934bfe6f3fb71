#include "banc_moteur.h"
#include "fausses_notifications.h"

using namespace tavi;
using namespace tavi::test;

TEST_F(BancMoteur, AvertitAvantLaSiesteDeLOrdinateurOuDeLAppliUneFoisACinqEtAUneMinute) {
    FaussesNotifications notifications;
    // 7 minutes left today, and the game in front with 10 minutes a day.
    relier();
    json consigne = limiteJeux(10);
    consigne.update({{"limiteJourMin", 60}, {"resteJourMin", 7}});
    transport->enFile(cheminBattement, FauxTransport::ok(consigne));
    transport->parDefaut = [](const auto&) { return FauxTransport::statut(500); };
    bureau.activer({"jeu", std::nullopt, "Jeu", 10});
    construire(&notifications);
    demarrer();
    secondes(125);
    ASSERT_EQ(notifications.envoyees.size(), 1u);
    EXPECT_EQ(notifications.envoyees[0].titre, "Limite du jour");

    // Started again within the same minutes, it does not say it again.
    moteur.reset();
    construire(&notifications);
    demarrer();
    secondes(400);
    std::vector<std::string> textes;
    for (const auto& n : notifications.envoyees)
        textes.push_back(n.texte);
    EXPECT_EQ(textes, (std::vector<std::string>{
                          "Plus que 5 minutes avant la sieste de ton ordinateur.",
                          "Plus que 5 minutes avant la sieste de Jeu.",
                          "Plus que 1 minute avant la sieste de ton ordinateur.",
                      }));
    // The closer warning takes the place of the first on the desktop.
    EXPECT_EQ(notifications.envoyees[2].remplace, notifications.envoyees[0].remplace);
    EXPECT_TRUE(voile().affiche()) << "the veil says the rest";
}
