#include "banc_moteur.h"

using namespace tavi;
using namespace tavi::test;

TEST_F(BancMoteur, LeResteSuitLeServeurJusquAMinuitPuisLaLimiteDuJourSansDescendreSousZero) {
    horloges.murale = 1'795'042'740'000; // 23:59:00 in Paris
    relier();
    transport->enFile(cheminBattement,
                      FauxTransport::ok({{"limiteJourMin", 10}, {"resteJourMin", 5}}));
    transport->parDefaut = [](const auto&) { return FauxTransport::statut(500); };
    demarrer();
    secondes(1);
    EXPECT_EQ(moteur->utiliseDepuisConsigne(), 0.0);
    EXPECT_EQ(moteur->resteSecondes(), 300.0);
    secondes(20);
    EXPECT_EQ(moteur->utiliseDepuisConsigne(), 20.0);
    EXPECT_EQ(moteur->resteSecondes(), 280.0);
    secondes(40);
    EXPECT_FALSE(moteur->utiliseDepuisConsigne()) << "the remainder was yesterday's";
    EXPECT_EQ(moteur->resteSecondes(), 598.0) << "two seconds counted since midnight";

    transport->enFile(cheminBattement, FauxTransport::ok({{"limiteJourMin", 0.01}}));
    battreAuProchainTic();
    EXPECT_EQ(moteur->resteSecondes(), 0.0);
    transport->enFile(cheminBattement,
                      FauxTransport::ok({{"limiteJourMin", 0}, {"resteJourMin", 5}}));
    battreAuProchainTic();
    EXPECT_FALSE(moteur->resteSecondes());
}

TEST_F(BancMoteur, UneSiesteDeLimiteFinitAvecLaLimiteCelleDUnSiteNonEtRienNeDortSousLeVoile) {
    relier(limiteJeux(0.05));
    const Application jeu{"jeu", std::nullopt, "Jeu", 10};
    bureau.activer(jeu);
    demarrer();
    secondes(3);
    ASSERT_TRUE(voile().affiche());
    EXPECT_EQ(voile().motif()->nom, "Jeu");
    EXPECT_EQ(voile().motif()->regle.cause, "limite_appli");
    EXPECT_EQ(bureau.masquees, std::vector<Application>{jeu});

    // The agent's own window in front, whatever it calls itself, is neither hidden nor counted.
    bureau.activer({"jeu", std::nullopt, "Tavi Home", bureau.pid});
    secondes(2);
    EXPECT_EQ(bureau.masquees.size(), 1u);
    EXPECT_EQ(moteur->compteur().secondesAppliDuJour("jeu"), 3.0);

    // Minutes from the piggy bank: the heartbeat goes at once and its rule set ends the nap.
    repondre(limiteJeux(10));
    const auto avant = battements().size();
    moteur->utiliserTirelire(5);
    boucle.terminerArrierePlan();
    EXPECT_EQ(battements().size(), avant + 1);
    EXPECT_FALSE(voile().affiche());

    const Application firefox{"firefox", std::nullopt, "Firefox", 20};
    bureau.activer(firefox);
    lire(Lecture::url("https://interdit.fr/"),
         FiltreJSON{true, std::vector<std::string>{"interdit.fr"}, std::nullopt});
    ASSERT_TRUE(voile().affiche());
    EXPECT_EQ(voile().motif()->nom, "interdit.fr");
    battreAuProchainTic();
    EXPECT_TRUE(voile().affiche()) << "a site's nap outlasts the rule set";

    repondre({{"protegeMaintenant", true}, {"mac", {{"coupees", {"jeu"}}}}});
    battreAuProchainTic();
    bureau.activer(jeu);
    secondes(1);
    ASSERT_TRUE(voile().affiche());
    EXPECT_TRUE(voile().motif()->estPause());
    EXPECT_EQ(bureau.masquees.size(), 2u) << "nothing naps under the rule veil";
}

TEST_F(BancMoteur, UnSiteInterditEnFondEstVideEtSignaleUneFoisParDixMinutesSansVoile) {
    const FiltreJSON filtre{true, std::vector<std::string>{"interdit.fr"}, std::nullopt};
    relier({{"filtreWeb", {{"actif", true}, {"domainesBloques", {"interdit.fr"}}}}});
    navigation.reponses["firefox"] = Lecture::url("https://interdit.fr/page");
    bureau.activer({"firefox", std::nullopt, "Firefox", 20});
    bureau.activer({"org.gnome.TextEditor", std::nullopt, "Éditeur de texte", 5});
    const auto signaux = [&] { return transport->requetes("/api/enfant/signal").size(); };
    demarrer();
    ASSERT_TRUE(boucle.attendre([&] { return signaux() == 1; }));
    EXPECT_EQ(navigation.attendreAppels(2),
              (std::vector<std::string>{"lire firefox", "vider firefox"}));
    EXPECT_FALSE(voile().affiche());
    EXPECT_TRUE(bureau.masquees.empty());

    // Seen again and again in the background, reported again only ten minutes later.
    secondes(300);
    lire(Lecture::url("https://interdit.fr/"), filtre, 1, false);
    boucle.terminerArrierePlan();
    EXPECT_EQ(signaux(), 1u);
    secondes(300);
    lire(Lecture::url("https://interdit.fr/"), filtre, 1, false);
    boucle.terminerArrierePlan();
    EXPECT_EQ(signaux(), 2u);
}

TEST_F(BancMoteur, UnNavigateurIlisibleDevantDortSousLeFiltreEtUnRefusResteSignaleJusquALaLecture) {
    navigation.inconnus = {"org.gnome.Epiphany"};
    relier({{"filtreWeb", {{"actif", true}}}});
    const Application web{"org.gnome.Epiphany", std::nullopt, "Web", 30};
    bureau.activer(web);
    demarrer();
    ASSERT_TRUE(voile().affiche());
    EXPECT_EQ(voile().motif()->regle.cause, "navigateur");
    EXPECT_EQ(bureau.masquees, std::vector<Application>{web});
    repondre({{"historiqueSites", {{"actif", true}}}});
    secondes(1);
    EXPECT_TRUE(voile().affiche()) << "the filter's nap outlasts the filter";

    // Once the child closes the veil, the browser is left alone.
    moteur->fermerVoileAppli();
    bureau.activer(web);
    secondes(2);
    EXPECT_FALSE(voile().affiche());
    EXPECT_EQ(bureau.masquees.size(), 1u);

    lire(Lecture::refusee());
    battreAuProchainTic();
    battreAuProchainTic();
    lire(Lecture::url("https://exemple.fr/"));
    battreAuProchainTic();
    const auto corps = battements();
    ASSERT_GE(corps.size(), 3u);
    const auto automatisation = [&](std::size_t depuisLaFin) {
        return corps[corps.size() - depuisLaFin]["autorisations"]["automatisation"];
    };
    EXPECT_EQ(automatisation(3), false);
    EXPECT_EQ(automatisation(2), false);
    EXPECT_EQ(automatisation(1), true);
}

// A stopped agent is not a sleeping computer: a gap the awake clock saw too counts whole when
// input came during it, and the parents hear of the stop; a sleep, the part of a stop spent
// asleep, or a stop without input count nothing.
TEST_F(BancMoteur, UnArretDeLAgentCompteQuandLaSaisieContinueEtSeSignale) {
    relier({{"limiteJourMin", 600}});
    demarrer();
    const double avant = moteur->compteur().secondesDuJour();
    const auto apres = [&](std::int64_t arret, std::int64_t sommeil, double inactivite) {
        session.inactivite = inactivite;
        horloges.avancer(arret);
        horloges.dormir(sommeil);
        secondes(1);
        return moteur->compteur().secondesDuJour() - avant;
    };
    EXPECT_EQ(apres(0, 35'000, 1), 0);
    EXPECT_EQ(apres(35'000, 0, 2), 36);
    EXPECT_EQ(transport->requetes("/api/enfant/signal").at(0).corps,
              json({{"nature", "agent_arrete"}, {"detail", "36 s"}}));
    EXPECT_EQ(apres(40'000, 600'000, 2), 36 + 41);
    EXPECT_EQ(apres(40'000, 0, 45), 36 + 41);

    // Announced by logind: nothing counts until the wake, however long the freeze takes.
    moteur->versLaVeille();
    EXPECT_EQ(apres(5'000, 0, 1), 36 + 41);
    moteur->auReveil();
    EXPECT_EQ(apres(0, 0, 1), 36 + 41 + 1);
}
