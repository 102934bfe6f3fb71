#include "fausses_categories.h"
#include "rules/consigne_json.h"
#include "rules/programme.h"
#include "support/fuseau.h"
#include "support/impression.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

using Programme::regleCourante;
using Programme::siesteAppli;

Consigne consigne(const std::string& texte) {
    auto c = decoderConsigne(texte);
    if (!c) ADD_FAILURE() << c.error().message;
    return c ? *c : Consigne{};
}

std::optional<RegleMac> regle(const std::string& texte, std::int64_t maintenant,
                              std::optional<double> depuisConsigne = std::nullopt,
                              double duJour = 0) {
    return regleCourante(consigne(texte), maintenant, depuisConsigne, duJour);
}

std::set<std::string> famille(const std::string& nom) {
    return Programme::famillesMac().at(nom);
}

// 2026-10-25 in Paris has 25 hours: summer time ends at 03:00.
constexpr std::int64_t midiParis25Octobre = 1792926000000;   // 2026-10-25T12:00+01:00
constexpr std::int64_t minuitParis25Octobre = 1792879200000; // 2026-10-25T00:00+02:00

TEST(RegleCourante, UnePlageEstActiveDeSonDebutInclusASaFinExclue) {
    const std::string c = R"({"programme": [{"debut_ms": 1000, "fin_ms": 2000},
                                            {"debut_ms": 5000, "fin_ms": 5000}]})";
    EXPECT_TRUE(regle(c, 1000));
    EXPECT_FALSE(regle(c, 999));
    EXPECT_FALSE(regle(c, 2000));
    EXPECT_FALSE(regle(c, 5000)) << "an empty range is never active";
    EXPECT_EQ(*regle(c, 1500), (RegleMac{true, {}, {}, "moment", "", 2000}));
}

TEST(RegleCourante, LesPlagesActivesSeFusionnentDansLOrdreDuProgramme) {
    auto r = regle(R"({"programme": [
        {"debut_ms": 0, "fin_ms": 3000, "regle": {"mode": "familles", "familles": ["jeux"]},
         "cause": "gage"},
        {"debut_ms": 500, "fin_ms": 9000, "regle": {"mode": "tout"}, "cause": "pause_famille"},
        {"debut_ms": 0, "fin_ms": 4000, "regle": {"mode": "rien"}, "cause": "x", "titre": "T"}]})",
                   1000);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->bloquerTout);
    EXPECT_EQ(r->cause, "pause_famille");
    EXPECT_EQ(r->bloquees, famille("jeux"));
    EXPECT_EQ(r->familles, std::set<std::string>{"jeux"});
    EXPECT_EQ(r->fin, 9000);
    // An unknown mode blocks nothing but still speaks; an unknown family adds nothing.
    EXPECT_EQ(*regle(R"({"programme": [{"debut_ms": 0, "fin_ms": 9, "regle": {"mode": "rien"},
        "cause": "x", "titre": "T"}]})",
                     1),
              (RegleMac{false, {}, {}, "x", "T", 9}));
    EXPECT_EQ(regle(R"({"programme": [{"debut_ms": 0, "fin_ms": 9, "regle": {"mode":
        "familles", "familles": ["inconnue", "ecole"]}}]})",
                    1)
                  ->bloquees,
              std::set<std::string>{});
    EXPECT_TRUE(
        regle(R"({"programme": [{"debut_ms": 0, "fin_ms": 9, "regle": {}}]})", 1)->bloquerTout);
}

TEST(RegleCourante, PendantUnePeriodeOuverteSeuleLaPauseFamilleTient) {
    const std::string ouvert = R"("ouvert_jusqu_ms": 10000, "limite_jour_min": 1,)";
    EXPECT_FALSE(regle("{" + ouvert + R"("programme": [{"debut_ms": 0, "fin_ms": 9000}]})", 100,
                       std::nullopt, 1e6))
        << "range without cause and reached allowance both ignored";
    auto r = regle("{" + ouvert + R"("programme": [{"debut_ms": 0, "fin_ms": 9000},
        {"debut_ms": 0, "fin_ms": 8000, "cause": "pause_famille"}]})",
                   100, std::nullopt, 1e6);
    EXPECT_EQ(r, (RegleMac{true, {}, {}, "pause_famille", "", 8000}));
    EXPECT_FALSE(regle("{" + ouvert + R"("protege_maintenant": true, "cause": "gage"})", 100));
    EXPECT_EQ(regle("{" + ouvert + R"("protege_maintenant": true, "cause": "pause_famille"})", 100)
                  ->cause,
              "pause_famille");
    // Once the open period is over, everything applies again.
    EXPECT_EQ(
        regle("{" + ouvert + R"("programme": [{"debut_ms": 0, "fin_ms": 90000}]})", 10000)->cause,
        "moment");
}

TEST(RegleCourante, LaRegleImmediateTientJusquASaFinEtSeFondDansLeProgramme) {
    EXPECT_FALSE(regle(R"({"protege_maintenant": true, "fin_ms": 500})", 500)) << "expired";
    EXPECT_TRUE(regle(R"({"protege_maintenant": true, "fin_ms": 501})", 500));
    EXPECT_TRUE(regle(R"({"protege_maintenant": true, "fin_ms": 0})", 1e12)) << "no end";
    EXPECT_FALSE(regle(R"({"protege_maintenant": false, "cause": "gage"})", 1));
    // The computer-specific member wins over the mode.
    auto r = regle(R"({"protege_maintenant": true, "regle": {"mode": "tout"},
        "mac": {"bloquer_tout": false, "bloquees": ["steam"]}})",
                   1);
    EXPECT_EQ(r, (RegleMac{false, {"steam"}, {}, "", "", 0}));
    // Families of the immediate rule are not expanded: they block through the category.
    r = regle(R"({"protege_maintenant": true, "regle": {"mode": "familles", "familles":
        ["jeux"]}})",
              1);
    EXPECT_EQ(r, (RegleMac{false, {}, {"jeux"}, "", "", 0}));
    r = regle(R"({"protege_maintenant": true, "regle": {"mode": "familles", "familles": ["jeux"]},
        "mac": {"familles": ["videos"]}})",
              1);
    EXPECT_EQ(r->familles, std::set<std::string>{"videos"});
    // With a schedule rule, the schedule is the receiver: its message wins unless the
    // immediate rule is what makes the block total.
    r = regle(R"({"protege_maintenant": true, "cause": "pause_famille", "fin_ms": 50,
        "programme": [{"debut_ms": 0, "fin_ms": 90, "regle": {"mode": "familles",
        "familles": ["jeux"]}, "titre": "Devoirs"}]})",
              1);
    EXPECT_EQ(r, (RegleMac{true, famille("jeux"), {"jeux"}, "pause_famille", "", 90}));
    r = regle(R"({"protege_maintenant": true, "cause": "gage", "mac": {"bloquer_tout": false},
        "programme": [{"debut_ms": 0, "fin_ms": 90, "titre": "Dodo"}]})",
              1);
    EXPECT_EQ(r, (RegleMac{true, {}, {}, "moment", "Dodo", 90}));
}

TEST(RegleCourante, LeResteDuServeurPasseAvantLeTotalLocalDuJour) {
    test::FuseauFixe paris("Europe/Paris");
    const std::string limite = R"({"limite_jour_min": 60, "reste_jour_min": 10})";
    EXPECT_EQ(regle(limite, midiParis25Octobre, 600.0, 0)->cause, "limite") << "exactly used up";
    EXPECT_FALSE(regle(limite, midiParis25Octobre, 599.0, 1e6)) << "the local total is ignored";
    // Without the count since the rule set, the local total decides.
    EXPECT_FALSE(regle(limite, midiParis25Octobre, std::nullopt, 3599));
    EXPECT_TRUE(regle(limite, midiParis25Octobre, std::nullopt, 3600));
    EXPECT_FALSE(regle(R"({"limite_jour_min": 60})", midiParis25Octobre, 1e6, 3599));
    // No limit, a zero limit or a negative one: no daily limit at all.
    EXPECT_FALSE(regle(R"({"reste_jour_min": 0})", midiParis25Octobre, 1e6, 1e6));
    EXPECT_FALSE(regle(R"({"limite_jour_min": -5})", midiParis25Octobre, 1e6, 1e6));
}

TEST(RegleCourante, LaLimiteDuJourFinitUnJourFixeDe86400SecondesApresMinuit) {
    test::FuseauFixe paris("Europe/Paris");
    // The day of the change has 25 hours: the end is 23:00, an hour before the next midnight.
    auto r = regle(R"({"limite_jour_min": 1})", midiParis25Octobre, std::nullopt, 60);
    EXPECT_EQ(
        r, (RegleMac{true, {}, {}, "limite", "Limite du jour", minuitParis25Octobre + 86'400'000}));
    // Over a partial block it becomes total with its own message; over a total one it keeps
    // the message; the later end wins.
    r = regle(R"({"limite_jour_min": 1, "programme": [{"debut_ms": 0, "fin_ms": 1893452400000,
        "regle": {"mode": "familles", "familles": ["jeux"]}, "titre": "Devoirs"}]})",
              midiParis25Octobre, std::nullopt, 60);
    EXPECT_EQ(
        r, (RegleMac{true, famille("jeux"), {"jeux"}, "limite", "Limite du jour", 1893452400000}));
    r = regle(R"({"limite_jour_min": 1, "programme": [{"debut_ms": 0,
        "fin_ms": 1792926000001, "titre": "Dodo"}]})",
              midiParis25Octobre, std::nullopt, 60);
    EXPECT_EQ(r, (RegleMac{true, {}, {}, "moment", "Dodo", minuitParis25Octobre + 86'400'000}));
    // Another zone, another day start.
    test::FuseauFixe tokyo("Asia/Tokyo");
    r = regle(R"({"limite_jour_min": 1})", midiParis25Octobre, std::nullopt, 60);
    EXPECT_EQ(r->fin, 1792940400000); // 2026-10-26T00:00+09:00
}

TEST(EstCoupee, LeBlocageSuitLIdentifiantPuisLaCategorieSaufPourLesJamaisBloquees) {
    test::FaussesCategories categories;
    categories.parIdentifiant = {{"jeu.inconnu", "Public.App-Category.Games"},
                                 {"lecteur", "public.app-category.music"},
                                 {"cours", "public.app-category.education"}};
    auto appli = [](std::optional<std::string> id) { return Application{id, {}, "", 1}; };
    const RegleMac total{true, {}, {}, "", "", 0};
    const RegleMac jeux{false, {"steam"}, {"jeux", "ecole"}, "", "", 0};

    EXPECT_FALSE(Programme::estCoupee(appli(std::nullopt), total, categories));
    for (const auto& id : Programme::jamais())
        EXPECT_FALSE(Programme::estCoupee(appli(id), total, categories)) << id;
    EXPECT_FALSE(Programme::estCoupee(appli(Programme::identifiantAgent()), total, categories));
    EXPECT_TRUE(Programme::estCoupee(appli("steam"), jeux, categories));
    EXPECT_TRUE(Programme::estCoupee(appli("jeu.inconnu"), jeux, categories)) << "lowercased";
    EXPECT_FALSE(Programme::estCoupee(appli("lecteur"), jeux, categories));
    EXPECT_FALSE(Programme::estCoupee(appli("cours"), jeux, categories))
        << "school has no category fragment";
    EXPECT_FALSE(Programme::estCoupee(appli("jeu.inconnu"), RegleMac{}, categories));
}

TEST(SiesteAppli, UneApplicationCoupeeOuAuBoutDeSaLimiteDeGroupeFaitLaSieste) {
    test::FuseauFixe paris("Europe/Paris");
    std::map<std::string, double> usage = {{"steam", 1200}, {"minecraft", 540}, {"vlc", 10}};
    auto secondes = [&usage](const std::string& id) { return usage[id]; };
    const std::optional<Consigne> c = consigne(R"({
        "protege_maintenant": false, "ouvert_jusqu_ms": 9999999999999,
        "mac": {"coupees": ["discord"], "limites": [
            {"id": "zero", "nom": "Off", "minutes": 0, "applis": ["vlc"]},
            {"id": "jeux", "nom": "Jeux", "minutes": 30, "applis": ["steam", "minecraft"]},
            {"id": "video", "nom": "Vidéo", "minutes": 1, "applis": ["vlc", "steam"]}]},
        "limites_autres": {"jeux": 1}})");

    EXPECT_EQ(siesteAppli("discord", c, secondes, midiParis25Octobre),
              (RegleMac{false, {"discord"}, {}, "coupee", "", 0}));
    // 20 + 9 minutes here and 1 on another device reach the shared 30 minutes, even during an
    // open period.
    const RegleMac jeux{false,  {"steam", "minecraft"},           {}, "limite_appli",
                        "Jeux", minuitParis25Octobre + 86'400'000};
    EXPECT_EQ(siesteAppli("minecraft", c, secondes, midiParis25Octobre), jeux);
    EXPECT_EQ(siesteAppli("steam", c, secondes, midiParis25Octobre), jeux) << "first reached wins";
    usage["minecraft"] = 539;
    EXPECT_EQ(siesteAppli("minecraft", c, secondes, midiParis25Octobre), std::nullopt);
    EXPECT_EQ(siesteAppli("steam", c, secondes, midiParis25Octobre)->titre, "Vidéo");
    EXPECT_EQ(siesteAppli("vlc", c, secondes, midiParis25Octobre)->titre, "Vidéo")
        << "a limit of 0 minutes is off";
    EXPECT_EQ(siesteAppli("steam", std::nullopt, secondes, 0), std::nullopt);
    const std::optional<Consigne> jamais =
        consigne(R"({"mac": {"coupees": [")" + Programme::identifiantAgent() + R"("]}})");
    EXPECT_EQ(siesteAppli(Programme::identifiantAgent(), jamais, secondes, 0), std::nullopt);
}

} // namespace
} // namespace tavi
