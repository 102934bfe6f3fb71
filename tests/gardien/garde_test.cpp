// The guardian's own count and enforcement of rest, on sessions and looks at the X server the
// test sets, and on root's real state files.
#include "commun/jour.h"
#include "fausses_horloges.h"
#include "gardien/garde_repos.h"
#include "support/dossier_temporaire.h"

#include <gtest/gtest.h>
#include <unistd.h>

using namespace tavi;
using nlohmann::json;

namespace {

struct FaussesSessions : Sessions {
    std::vector<SessionLogind> liste;
    bool veille = false;
    std::vector<std::string> verrous, fins;
    std::optional<std::vector<SessionLogind>> graphiques() override { return liste; }
    std::optional<std::vector<SessionLogind>> locales() override { return liste; }
    bool versLaVeille() override { return veille; }
    bool verrouiller(const std::string& id) override { return verrous.push_back(id), true; }
    bool terminer(const std::string& id) override { return fins.push_back(id), true; }
};

struct FauxRegards : Regards {
    std::optional<RegardX> regard;
    pid_t agentDemande = -1;
    std::vector<std::string> avis;
    std::optional<RegardX> regarder(const AccesX&, pid_t agent) override {
        agentDemande = agent;
        return regard;
    }
    void garderSeulement(const std::set<std::string>&) override {}
    void afficherAvis(const AccesX&, const std::string& texte) override { avis.push_back(texte); }
    void retirerAvis(const std::string&) override { avis.push_back("retiré"); }
};

constexpr uid_t lea = 1001;
// The server's time, a month past the computer's wall clock.
constexpr std::int64_t serveurMs = 1'797'600'000'000;

class Garde : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "the guardian's state files are root's";
        sessions.liste = {{"c1", lea, "lea", "seat0", "x11", "active", ":5", 10, "", "", false}};
        regards.regard = RegardX{10.0, EtatVoile::present, "", 0};
    }
    std::unique_ptr<GardeRepos> garde() {
        return std::make_unique<GardeRepos>(
            GardeRepos::Ports{sessions, regards, h, dossier.chemin().string()},
            [](uid_t, const std::string& s) { return s == "c1" ? 777 : 0; },
            [](const SessionLogind&) { return std::vector<std::string>{}; });
    }
    // A family pause of an hour, with the family's choice for a missing veil.
    void pause(GardeRepos& g, const std::string& reaction) {
        const json c = {{"heure_serveur_ms", serveurMs},   {"protege_maintenant", true},
                        {"fin_ms", serveurMs + 3'600'000}, {"cause", "pause_famille"},
                        {"regle", {{"mode", "tout"}}},     {"reaction_voile", reaction}};
        g.consigneRecue(lea, c.dump(), h.mono, h.mono);
    }
    double minutes(const GardeRepos& g) {
        for (const auto& c : g.etat())
            if (c["uid"] == lea) return c["usage"]["secondes"].get<double>() / 60;
        return -1;
    }
    void secondes(GardeRepos& g, int n, double inactiviteDepart = -1) {
        for (int i = 0; i < n; ++i) {
            h.avancer(1000);
            if (inactiviteDepart >= 0) regards.regard->inactiviteS = inactiviteDepart + i + 1;
            g.tic({lea});
        }
    }

    test::DossierTemporaire dossier;
    FaussesSessions sessions;
    FauxRegards regards;
    FaussesHorloges h;
};

} // namespace

TEST_F(Garde, LeCompteSuitLaSaisieQueLeGardienLitPasLesIndicesDuCompte) {
    auto g = garde();
    g->tic({lea});
    secondes(*g, 60);
    EXPECT_DOUBLE_EQ(minutes(*g), 1.0) << "fresh input on the active session counts";
    regards.regard->inactiviteS = 400;
    secondes(*g, 60);
    EXPECT_DOUBLE_EQ(minutes(*g), 1.0) << "five minutes without input do not";

    // The account says its session is locked: it stands while no input comes after it.
    sessions.liste[0].verrouillee = true;
    secondes(*g, 60, 10);
    EXPECT_DOUBLE_EQ(minutes(*g), 1.0);
    regards.regard->inactiviteS = 0.5;
    secondes(*g, 60);
    EXPECT_DOUBLE_EQ(minutes(*g), 2.0) << "a lock hint with fresh input is use";

    sessions.veille = true;
    secondes(*g, 60);
    sessions.veille = false;
    sessions.liste[0].etat = "online";
    secondes(*g, 60);
    EXPECT_DOUBLE_EQ(minutes(*g), 2.0) << "going to sleep, or in the background of the seat";

    // A text console of the same account, in front on another seat: logind alone decides.
    sessions.liste.push_back({"c7", lea, "lea", "seat1", "tty", "active", "", 11, "", "tty2", false});
    secondes(*g, 60);
    EXPECT_DOUBLE_EQ(minutes(*g), 3.0);
    h.dormir(3'600'000);
    secondes(*g, 1);
    EXPECT_LT(minutes(*g), 3.05) << "a suspend adds nothing";
}

TEST_F(Garde, SansVoilePendantLeReposLeGardienVerrouilleEncorePuisFermeLaSession) {
    auto g = garde();
    pause(*g, "fermer_session");
    regards.regard = RegardX{1.0, EtatVoile::absent, "aucune_fenetre", 0};
    secondes(*g, 10, 1);
    EXPECT_EQ(regards.agentDemande, 777) << "the veil looked for is the guardian's agent's";
    EXPECT_TRUE(sessions.verrous.empty()) << "ten seconds of grace";
    secondes(*g, 1, 11);
    ASSERT_EQ(sessions.verrous.size(), 1u);
    json pendant = json::object();
    g->completer(lea, pendant);
    ASSERT_EQ(pendant["voile_absent"].size(), 1u) << "told while it lasts";
    EXPECT_TRUE(pendant["voile_absent"][0]["en_cours"].get<bool>());
    g->rendre(lea, pendant);
    secondes(*g, 20, 12);
    EXPECT_EQ(sessions.verrous.size(), 1u) << "no input since the lock: no new lock";
    for (int fois = 2; fois <= 3; ++fois) {
        regards.regard->inactiviteS = 0.2;
        secondes(*g, 1);
        EXPECT_EQ(sessions.verrous.size(), static_cast<std::size_t>(fois)) << "used again";
        secondes(*g, 10, 0);
    }
    ASSERT_EQ(regards.avis, std::vector<std::string>{GardeRepos::texteAvis});
    secondes(*g, 60, 10);
    EXPECT_EQ(sessions.fins, std::vector<std::string>{"c1"}) << "after the minute's notice";
    EXPECT_GT(minutes(*g), 1.5) << "the child used the computer without the veil";

    regards.regard->voile = EtatVoile::present;
    secondes(*g, 1);
    json m = json::object();
    g->completer(lea, m);
    EXPECT_EQ(m["verrous"].size(), 3u);
    EXPECT_EQ(m["fins_session"].size(), 1u);
    ASSERT_EQ(m["voile_absent"].size(), 1u);
    EXPECT_EQ(m["voile_absent"][0]["raison"], "aucune_fenetre");
    EXPECT_GE(m["voile_absent"][0]["duree_ms"].get<std::int64_t>(), 100'000);
    g->rendre(lea, m);
    json encore = json::object();
    g->completer(lea, encore);
    EXPECT_EQ(encore["verrous"], m["verrous"]) << "a failed heartbeat loses nothing";
    EXPECT_EQ(encore["voile_absent"], m["voile_absent"]);
}

TEST_F(Garde, SignalerNeFaitQueNoterEtLeVoilePresentNeCompteRien) {
    auto g = garde();
    pause(*g, "signaler");
    regards.regard = RegardX{1.0, EtatVoile::present, "", 0};
    secondes(*g, 120, 0);
    EXPECT_DOUBLE_EQ(minutes(*g), 0.0) << "behind the veil nothing is used";
    regards.regard->voile = EtatVoile::absent;
    regards.regard->raison = "non_visible";
    secondes(*g, 60, 0);
    EXPECT_TRUE(sessions.verrous.empty());
    EXPECT_DOUBLE_EQ(minutes(*g), 1.0) << "without the veil the child uses the computer";
}

TEST_F(Garde, LeJourEtLeCompteSontCeuxDuGardienEtSurviventASonRedemarrage) {
    auto g = garde();
    pause(*g, "verrouiller");
    regards.regard = RegardX{1.0, EtatVoile::absent, "non_couvert", 0};
    secondes(*g, 90, 0);
    json m = json::object();
    g->completer(lea, m);
    EXPECT_EQ(m["jour"], jourLocal(serveurMs + 90'000)) << "the server's day, not the wall clock's";
    EXPECT_EQ(m["controle"], "complet");
    g->enregistrer();
    g.reset();

    auto apres = garde();
    sessions.liste.clear();
    apres->tic({lea});
    EXPECT_NEAR(minutes(*apres), 1.5, 0.02);
    EXPECT_TRUE(apres->etat()[0]["repos"].get<bool>()) << "the rule set came back with the count";
}
