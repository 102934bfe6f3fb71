#include "banc_moteur.h"
#include "fausses_notifications.h"

using namespace tavi;
using namespace tavi::test;

namespace {

class Avertissements : public BancMoteur {
protected:
    void construireAvecNotifications() {
        moteur = std::make_unique<Moteur>(
            Plateforme{horloges, reglages, coffre, boucle, transport, session, bureau, navigation,
                       applications, categories, systeme, demarrage, nullptr, &notifications});
    }
    std::vector<std::string> textes() const {
        std::vector<std::string> t;
        for (const auto& n : notifications.envoyees)
            t.push_back(n.titre + " | " + n.texte);
        return t;
    }
    FaussesNotifications notifications;
};

TEST_F(Avertissements,
       LaLimiteDuJourAvertitAPlusQueCinqPuisUneMinuteUneSeuleFoisMemeApresUnRedemarrage) {
    relier();
    transport->enFile(cheminBattement,
                      FauxTransport::ok({{"limiteJourMin", 60}, {"resteJourMin", 7}}));
    transport->parDefaut = [](const auto&) { return FauxTransport::statut(500); };
    construireAvecNotifications();
    demarrer();
    secondes(115);
    EXPECT_TRUE(notifications.envoyees.empty());
    secondes(10);
    EXPECT_EQ(textes(),
              std::vector<std::string>{
                  "Limite du jour | Plus que 5 minutes avant la sieste de ton ordinateur."});

    // Started again within the same minutes, it does not say it again.
    moteur.reset();
    construireAvecNotifications();
    demarrer();
    secondes(60);
    EXPECT_EQ(notifications.envoyees.size(), 1u);

    secondes(190);
    ASSERT_EQ(notifications.envoyees.size(), 2u);
    EXPECT_EQ(notifications.envoyees[1].texte,
              "Plus que 1 minute avant la sieste de ton ordinateur.");
    // The closer warning takes the place of the first on the desktop.
    EXPECT_EQ(notifications.envoyees[1].remplace, notifications.envoyees[0].remplace);
    secondes(120);
    EXPECT_EQ(notifications.envoyees.size(), 2u) << "nothing more, the veil says the rest";
    EXPECT_TRUE(voile().affiche());
}

TEST_F(Avertissements, UnePlageQuiCommenceEtLaLimiteDeLAppliDevantAvertissentChacuneLeurTour) {
    const std::int64_t debut = horloges.murale + 3 * 60'000 + 30'000;
    json consigne = limiteJeux(6);
    consigne["programme"] = {{{"debutMs", debut}, {"finMs", debut + 3'600'000}, {"titre", "Dodo"}}};
    relier(consigne);
    bureau.activer({"jeu", std::nullopt, "Jeu", 10});
    construireAvecNotifications();
    demarrer();
    secondes(2);
    // Both come within 5 minutes: the range in 3 min 30, the game's 6 minutes in 6 - 0.
    EXPECT_EQ(textes(), (std::vector<std::string>{
                            "Dodo | Plus que 4 minutes avant la sieste de ton ordinateur.",
                        }));
    secondes(60);
    ASSERT_EQ(notifications.envoyees.size(), 2u);
    EXPECT_EQ(notifications.envoyees[1].texte, "Plus que 5 minutes avant la sieste de Jeu.");
    EXPECT_EQ(notifications.envoyees[1].titre, "Limite : Jeux");
    secondes(90);
    ASSERT_EQ(notifications.envoyees.size(), 3u);
    EXPECT_EQ(notifications.envoyees[2].texte,
              "Plus que 1 minute avant la sieste de ton ordinateur.");
    secondes(120);
    EXPECT_EQ(notifications.envoyees.size(), 3u) << "under the veil nothing more is said";
}

} // namespace
