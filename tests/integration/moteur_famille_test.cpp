#include "agent_et_famille.h"
#include "app/etat_publie.h"
#include "support/application_qt.h"

#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tavi {
namespace {

using nlohmann::json;
using std::chrono::seconds;

// Each test starts paired: the pairing's first heartbeat has brought the rule set.
class MoteurEtFamille : public test::AgentEtFamille {
protected:
    void SetUp() override {
        AgentEtFamille::SetUp();
        if (!HasFatalFailure()) relier();
        if (!HasFatalFailure()) {
            ASSERT_TRUE(moteur().consigne().has_value());
        }
    }

    json etat() { return json::parse(etatPublie(moteur()).dump()); }
    // One heartbeat, to its end whatever its outcome.
    void battre() {
        bool fini = false;
        moteur().battre([&] { fini = true; });
        ASSERT_TRUE(test::attendreQue([&] { return fini; }, seconds(30)));
    }
};

TEST_F(MoteurEtFamille, UnePauseDesParentsVoileLOrdinateurEnUnBattementEtSeLeveAvecElle) {
    std::ostringstream sortie;
    SortieEtat lignes(moteur(), sortie);
    moteur().evaluer();
    EXPECT_EQ(etat()["reste_secondes"], 90 * 60);

    famille.commande1({"pause", "Léa", "15", "--titre", "Goûter"});
    battre();
    const json e = etat();
    EXPECT_EQ(e["voile"], json({{"motif", "pause"}, {"nom", nullptr}, {"cause", "pause_famille"}}));
    EXPECT_EQ(e["regle"]["titre"], "Goûter") << e;

    // Lifted on the parents' side, gone with the ticking engine's next heartbeat, which a wake
    // brings forward to the next tick.
    moteur().demarrer();
    famille.commande1({"fin-pause", "Léa"});
    moteur().auReveil();
    ASSERT_TRUE(test::attendreQue([&] { return etat()["voile"].is_null(); }, seconds(10)));

    // One line per state, never the same one twice in a row, however many ticks ran.
    const auto l = test::lignes(sortie.str());
    ASSERT_GE(l.size(), 3u) << sortie.str();
    for (std::size_t i = 1; i < l.size(); ++i)
        EXPECT_NE(l[i], l[i - 1]) << sortie.str();
    EXPECT_EQ(json::parse(l.back())["voile"], nullptr);
}

TEST_F(MoteurEtFamille, LesDemandesDeLEnfantArriventChezLesParentsEtLaTirelireServeTout) {
    bool fini = false;
    moteur().demanderTemps(15, [&] { fini = true; });
    ASSERT_TRUE(test::attendreQue([&] { return fini; }));
    EXPECT_EQ(moteur().messageVoile(), "C'est envoyé ! Tes parents vont répondre.");
    const json demande = famille.commande1({"demandes", "Léa"});
    EXPECT_EQ(demande["demande"]["minutes"], 15) << demande;

    // The piggy bank's minutes are in the rule set as soon as the use is answered: the heartbeat
    // that brings them does not wait for the cadence.
    ASSERT_LE(moteur().consigne()->resteJourMin.value_or(0), 90);
    fini = false;
    moteur().utiliserTirelire(10, [&] { fini = true; });
    ASSERT_TRUE(test::attendreQue([&] { return fini; }));
    EXPECT_GT(moteur().consigne()->resteJourMin.value_or(0), 99) << "not fetched at once";
    EXPECT_EQ(moteur().messageVoile(), "10 min de ta tirelire : c'est parti !");

    // More than is left: the server's refusal is what the child reads, and nothing changes.
    fini = false;
    moteur().utiliserTirelire(50, [&] { fini = true; });
    ASSERT_TRUE(test::attendreQue([&] { return fini; }));
    EXPECT_EQ(moteur().messageVoile(), "Pas assez de minutes dans ta tirelire.");
    EXPECT_EQ(famille.commande1({"rapport", "Léa"})["enfant"]["tirelire_min"], 10);

    // The pairing registered the login agent, and the heartbeats say so to the parents.
    EXPECT_TRUE(moteur().agentActif());
    const auto rapport = test::lignes(famille.commande({"rapport", "Léa"}).out);
    ASSERT_GE(rapport.size(), 2u);
    EXPECT_EQ(json::parse(rapport[1])["ordinateur"]["demarrage_auto"], true) << rapport[1];
}

TEST_F(MoteurEtFamille, LAgentSurvitAuRedemarrageDuServeur) {
    const std::int64_t avant = moteur().derniereNouvelleMs();
    ASSERT_EQ(famille.arreter(), 0);
    battre();
    EXPECT_EQ(moteur().derniereNouvelleMs(), avant) << "a heartbeat got through a stopped server";
    EXPECT_TRUE(moteur().relie());

    // The parents act while the server is down; the agent learns it once it is back.
    famille.commande1({"pause", "Léa", "5"});
    ASSERT_TRUE(famille.servir());
    battre();
    EXPECT_GT(moteur().derniereNouvelleMs(), avant);
    EXPECT_EQ(etat()["voile"]["motif"], "pause");
}

} // namespace
} // namespace tavi
