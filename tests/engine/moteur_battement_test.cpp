#include "banc_moteur.h"

#include <limits>

using namespace tavi;
using namespace tavi::test;

namespace {

// The heartbeats, by rank, that carry `cle`.
std::vector<std::size_t> portant(const std::vector<json>& battements, const std::string& cle) {
    std::vector<std::size_t> rangs;
    for (std::size_t i = 0; i < battements.size(); ++i)
        if (battements[i].contains(cle)) rangs.push_back(i);
    return rangs;
}

} // namespace

TEST_F(BancMoteur, UnTicCompteEvalueEtBatToutesLesTrenteSecondesDepuisLeDebutDuPrecedent) {
    relier({{"limiteJourMin", 1}});
    demarrer();
    secondes(1);
    EXPECT_EQ(battements().size(), 1u) << "the first tick with the token in hand beats";
    secondes(29);
    EXPECT_EQ(battements().size(), 1u);
    secondes(1);
    EXPECT_EQ(battements().size(), 2u);

    // The tick that reaches the limit raises the veil: counted before it is evaluated.
    secondes(28);
    EXPECT_FALSE(voile().affiche());
    secondes(1);
    ASSERT_TRUE(voile().affiche());
    EXPECT_EQ(voile().motif()->regle.cause, "limite");

    // A slow answer: no second heartbeat while one is in flight, then the cadence counts from
    // the start of the last one, not from its answer.
    transport->lent.retenir();
    secondes(36);
    EXPECT_EQ(battements().size(), 3u);
    transport->lent.relacher();
    boucle.terminerArrierePlan();
    secondes(1);
    EXPECT_EQ(battements().size(), 4u);
}

TEST_F(BancMoteur, DeuxRefusDeSuiteOublientLeJumelageEtLeVoileTombeAussitot) {
    relier({{"protegeMaintenant", true}});
    for (auto issue : {FauxTransport::statut(401), FauxTransport::ok({{"protegeMaintenant", true}}),
                       FauxTransport::statut(401), FauxTransport::statut(401)})
        transport->enFile(cheminBattement, issue);
    demarrer();
    secondes(61);
    ASSERT_EQ(battements().size(), 3u);
    EXPECT_TRUE(moteur->relie()) << "401, success, 401 is not two refusals in a row";
    EXPECT_TRUE(voile().affiche());

    boucle.avancer(30s);
    boucle.terminerArrierePlan();
    ASSERT_EQ(battements().size(), 4u);
    EXPECT_FALSE(moteur->relie());
    EXPECT_FALSE(voile().affiche()) << "withdrawn with the pairing, not at the next tick";
    EXPECT_EQ(voile().presentation(), Presentation::normale);
    EXPECT_FALSE(reglages.texte("ordinateur_id"));
    EXPECT_EQ(demarrage.desenregistrements, 1);
}

TEST_F(BancMoteur, UnePlageQuiCommenceDansMoinsDeDeuxMinutesAvanceLeBattement) {
    relier();
    const auto plageA = [&](std::int64_t dansMs) {
        const std::int64_t debut = horloges.murale + dansMs;
        return FauxTransport::ok(
            {{"programme",
              {{{"debutMs", debut}, {"finMs", debut + 60'000}, {"regle", {{"mode", "rien"}}}}}}});
    };
    transport->enFile(cheminBattement, plageA(1'000 + 180'000));
    transport->enFile(cheminBattement, plageA(31'000 + 90'000));
    demarrer();
    secondes(30);
    EXPECT_EQ(battements().size(), 1u) << "a start 3 minutes away waits for the cadence";
    secondes(1 + 10);
    EXPECT_EQ(battements().size(), 3u) << "one 90 s away brings the next beat within 10 s";
}

TEST_F(BancMoteur, LesSitesEtLUsagePartentToutesLesTroisMinutesEtLesSitesRatesRepartent) {
    relier({{"historiqueSites", {{"actif", true}}}, {"rapportApplis", {{"actif", true}}}});
    transport->enFile(cheminBattement, FauxTransport::statut(500));
    demarrer();
    lire(Lecture::url("https://exemple.fr/"), {}, 20);
    secondes(1);
    lire(Lecture::url("https://exemple.fr/"), {}, 5);
    secondes(180);
    lire(Lecture::url("https://exemple.fr/"), {}, 7);
    secondes(180);

    const auto corps = battements();
    ASSERT_EQ(corps.size(), 13u);
    EXPECT_EQ(portant(corps, "sites"), (std::vector<std::size_t>{0, 6, 12}));
    EXPECT_EQ(portant(corps, "usage_applis"), (std::vector<std::size_t>{0, 6, 12}));
    EXPECT_EQ(corps[0]["sites"][0]["s"], 20);
    EXPECT_EQ(corps[6]["sites"][0]["s"], 25) << "the failed batch came back";
    EXPECT_EQ(corps[12]["sites"][0]["s"], 7) << "the delivered batch did not";
}

TEST_F(BancMoteur, LaListeDesApplisVaToutesLesDixMinutesQuandElleAChangeOuNAPasEteRecue) {
    session.verrouille = true; // nothing counted: ten-minute stretches go faster
    applications.applis = {{"org.gnome.TextEditor", "Éditeur de texte", std::nullopt, false}};
    relier();
    const auto battre = [&](int n) {
        for (int i = 0; i < n; ++i) {
            boucle.avancer(30s);
            boucle.terminerArrierePlan();
        }
    };
    demarrer();
    secondes(1);
    battre(20);
    applications.applis.push_back({"org.gnome.Mines", "Mines", "Game", false});
    battre(19);
    transport->enFile(cheminBattement, FauxTransport::statut(500));
    battre(41);

    const auto corps = battements();
    ASSERT_EQ(corps.size(), 81u);
    EXPECT_EQ(portant(corps, "applis_installees"), (std::vector<std::size_t>{0, 40, 60}));
    EXPECT_EQ(corps[60]["applis_installees"].size(), 2u);
}

TEST_F(BancMoteur, LeBattementDitLUsageALaMinuteDixiemePresEtSansConsigneOublieLesSites) {
    relier();
    transport->enFile(cheminBattement, FauxTransport::statut(500));
    json consigne = limiteJeux(60, {"jeu-a", "jeu-b"});
    consigne["historiqueSites"] = {{"actif", true}};
    repondre(consigne);
    construire();
    lire(Lecture::url("https://exemple.fr/"), {}, 20);
    demarrer();
    secondes(1);
    bureau.activer({"jeu-a", std::nullopt, "Jeu A", 11});
    secondes(6);
    bureau.activer({"jeu-b", std::nullopt, "Jeu B", 12});
    secondes(5);
    bureau.devant.reset();
    secondes(73);
    battreAuProchainTic();
    battreAuProchainTic();
    secondes(2);
    battreAuProchainTic();

    const auto corps = battements();
    ASSERT_EQ(corps.size(), 6u);
    EXPECT_EQ(corps[0]["incertain"], true);
    EXPECT_EQ(corps[2]["incertain"], false);
    EXPECT_TRUE(portant(corps, "sites").empty()) << "a history nobody asked for is dropped";
    EXPECT_EQ(corps[3]["utilise_jour_min"], 1.4); // 86 s
    EXPECT_EQ(corps[4]["utilise_jour_min"], 1.5); // 87 s
    EXPECT_EQ(corps[5]["utilise_jour_min"], 1.5); // 90 s
    EXPECT_EQ(corps[3]["minutes_limites"], (json{{"jeu-a", 0.1}})) << "5 s of jeu-b is not listed";
}

// An exchange that throws (a library's bug, memory run out) is a failed heartbeat like any
// other, and the next one goes on its cadence; nor does an answer's absurd instant end the
// agent or roll the day: the count stays and the limit holds.
TEST_F(BancMoteur, UnEchangeQuiLeveOuUneHeureAbsurdeNArretentNiLesBattementsNiLeJour) {
    relier({{"limiteJourMin", 0.5}});
    transport->parDefaut = [](const auto&) -> FauxTransport::Issue { throw std::bad_alloc(); };
    demarrer();
    secondes(40);
    ASSERT_EQ(battements().size(), 2u);
    const double compte = moteur->compteur().secondesDuJour();
    for (const std::int64_t instant :
         {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        repondre({{"limiteJourMin", 0.5}, {"heureServeurMs", instant}});
        battreAuProchainTic();
        secondes(1);
        EXPECT_EQ(voile().motif()->regle.cause, "limite");
        EXPECT_EQ(moteur->compteur().secondesDuJour(), compte) << instant;
    }
}

// The window a newly switched-on report opens reads the engine's rule set: it must be the new
// one, or the child is welcomed instead of shown what the parents will see.
TEST_F(BancMoteur, UnRapportQuiSAllumeOuvreLaFenetreSousLaNouvelleConsigne) {
    relier({{"limiteJourMin", 60}});
    demarrer();
    moteur->consentir();
    std::vector<bool> accordAuRappel;
    moteur->quandRapportActive = [&] { accordAuRappel.push_back(moteur->accordDonne()); };
    repondre({{"limiteJourMin", 60}, {"rapportApplis", {{"actif", true}}}});
    battreAuProchainTic();
    EXPECT_EQ(accordAuRappel, std::vector<bool>{false});
}

// Every post says which boot and which start of the agent it comes from; an unknown boot is
// left out rather than sent as -1.
TEST_F(BancMoteur, ChaqueEnvoiDitSonDemarrageEtLeLancementDeLAgent) {
    relier({{"limiteJourMin", 60}});
    const std::int64_t lance = horloges.mono;
    demarrer();
    secondes(1);
    moteur->signalerArret();
    boucle.terminerArrierePlan();
    horloges.identite = -1;
    battreAuProchainTic();
    const auto corps = battements();
    ASSERT_EQ(corps.size(), 3u);
    for (const json& c : {corps[0], corps[1]}) {
        EXPECT_EQ(c.value("demarrage_id", 0), 4242);
        EXPECT_EQ(c.value("agent_lance_ms", std::int64_t{0}), lance);
    }
    EXPECT_FALSE(corps[2].contains("demarrage_id"));
}
