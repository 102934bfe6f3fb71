#include "fausses_categories.h"
#include "rules/consigne_json.h"
#include "rules/programme.h"
#include "support/fuseau.h"
#include "support/impression.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

using Programme::siesteAppli;

Consigne consigne(const std::string& texte) {
    auto c = decoderConsigne(texte);
    if (!c) ADD_FAILURE() << c.error().message;
    return c ? *c : Consigne{};
}

std::set<std::string> famille(const std::string& nom) {
    return Programme::famillesMac().at(nom);
}

// One schedule range; `reste` adds members after the bounds.
std::string plage(std::int64_t debut, std::int64_t fin, const std::string& reste = "") {
    return R"({"debut_ms": )" + std::to_string(debut) + R"(, "fin_ms": )" + std::to_string(fin) +
           (reste.empty() ? "" : ", " + reste) + "}";
}
std::string programme(const std::string& plages, const std::string& avant = "") {
    return "{" + avant + R"("programme": [)" + plages + "]}";
}

// 2026-10-25 in Paris has 25 hours: summer time ends at 03:00.
constexpr std::int64_t midiParis25Octobre = 1792926000000;            // 2026-10-25T12:00+01:00
constexpr std::int64_t minuitParis25Octobre = 1792879200000;          // 2026-10-25T00:00+02:00
constexpr std::int64_t finDuJour = minuitParis25Octobre + 86'400'000; // 23:00, not midnight

struct Cas {
    std::string consigne;
    std::int64_t maintenant;
    std::optional<double> depuisConsigne;
    double duJour;
    std::optional<RegleMac> attendue;
};

TEST(RegleCourante, PlagesRegleImmediateEtLimiteDuJourDonnentLaRegleDeLInstant) {
    test::FuseauFixe paris("Europe/Paris");
    const auto jeux = R"("regle": {"mode": "familles", "familles": ["jeux"]})";
    const std::string ouvert = R"("ouvert_jusqu_ms": 10000, "limite_jour_min": 1, )";
    const std::string immediat = R"({"protege_maintenant": true, )";
    const std::string limite = R"({"limite_jour_min": 60, "reste_jour_min": 10})";
    const RegleMac limiteAtteinte{true, {}, {}, "limite", "Limite du jour", finDuJour};
    const auto rien = std::nullopt;
    const std::vector<Cas> cas = {
        // A range is active from its start included to its end excluded; an empty one never.
        {programme(plage(1000, 2000)), 1000, rien, 0, RegleMac{true, {}, {}, "moment", "", 2000}},
        {programme(plage(1000, 2000)), 999, rien, 0, rien},
        {programme(plage(1000, 2000)), 2000, rien, 0, rien},
        {programme(plage(5000, 5000)), 5000, rien, 0, rien},
        // Active ranges merge in schedule order: the total one brings its message.
        {programme(plage(0, 3000, jeux + std::string(R"(, "cause": "gage")")) + "," +
                   plage(500, 9000, R"("regle": {"mode": "tout"}, "cause": "pause_famille")") +
                   "," + plage(0, 4000, R"("regle": {"mode": "rien"}, "cause": "x")")),
         1000, rien, 0, RegleMac{true, famille("jeux"), {"jeux"}, "pause_famille", "", 9000}},
        // An unknown mode blocks nothing but still speaks; an unknown family adds nothing.
        {programme(plage(0, 9, R"("regle": {"mode": "rien"}, "cause": "x", "titre": "T")")), 1,
         rien, 0, RegleMac{false, {}, {}, "x", "T", 9}},
        {programme(plage(0, 9, R"("regle": {"mode": "familles", "familles": ["inconnue"]})")), 1,
         rien, 0, RegleMac{false, {}, {"inconnue"}, "moment", "", 9}},
        {programme(plage(0, 9, R"("regle": {})")), 1, rien, 0,
         RegleMac{true, {}, {}, "moment", "", 9}},
        // During an open period only the family pause holds, until the period ends.
        {programme(plage(0, 9000), ouvert), 100, rien, 1e6, rien},
        {programme(plage(0, 9000) + "," + plage(0, 8000, R"("cause": "pause_famille")"), ouvert),
         100, rien, 1e6, RegleMac{true, {}, {}, "pause_famille", "", 8000}},
        {"{" + ouvert + R"("protege_maintenant": true, "cause": "gage"})", 100, rien, 0, rien},
        {"{" + ouvert + R"("protege_maintenant": true, "cause": "pause_famille"})", 100, rien, 0,
         RegleMac{true, {}, {}, "pause_famille", "", 0}},
        {programme(plage(0, 90000), ouvert), 10000, rien, 0,
         RegleMac{true, {}, {}, "moment", "", 90000}},
        // The immediate rule holds until its end (0: none); the computer's member wins over
        // the mode, and its families block through the category, unexpanded.
        {immediat + R"("fin_ms": 500})", 500, rien, 0, rien},
        {immediat + R"("fin_ms": 501})", 500, rien, 0, RegleMac{true, {}, {}, "", "", 501}},
        {immediat + R"("fin_ms": 0})", 1'000'000'000'000, rien, 0,
         RegleMac{true, {}, {}, "", "", 0}},
        {R"({"protege_maintenant": false, "cause": "gage"})", 1, rien, 0, rien},
        {immediat +
             R"("regle": {"mode": "tout"}, "mac": {"bloquer_tout": false, "bloquees": ["steam"]}})",
         1, rien, 0, RegleMac{false, {"steam"}, {}, "", "", 0}},
        {immediat + jeux + "}", 1, rien, 0, RegleMac{false, {}, {"jeux"}, "", "", 0}},
        {immediat + jeux + R"(, "mac": {"familles": ["videos"]}})", 1, rien, 0,
         RegleMac{false, {}, {"videos"}, "", "", 0}},
        // With a schedule rule, the schedule is the receiver: its message wins unless the
        // immediate rule is what makes the block total.
        {programme(plage(0, 90, jeux + std::string(R"(, "titre": "Devoirs")")),
                   R"("protege_maintenant": true, "cause": "pause_famille", "fin_ms": 50, )"),
         1, rien, 0, RegleMac{true, famille("jeux"), {"jeux"}, "pause_famille", "", 90}},
        {programme(
             plage(0, 90, R"("titre": "Dodo")"),
             R"("protege_maintenant": true, "cause": "gage", "mac": {"bloquer_tout": false}, )"),
         1, rien, 0, RegleMac{true, {}, {}, "moment", "Dodo", 90}},
        // The server's remainder wins over the local day total; without the count since the
        // rule set, the local total decides. The day ends 86 400 s after midnight.
        {limite, midiParis25Octobre, 600.0, 0, limiteAtteinte},
        {limite, midiParis25Octobre, 599.0, 1e6, rien},
        {limite, midiParis25Octobre, rien, 3599, rien},
        {limite, midiParis25Octobre, rien, 3600, limiteAtteinte},
        {R"({"limite_jour_min": 60})", midiParis25Octobre, 1e6, 3599, rien},
        // No limit, a zero limit or a negative one: no daily limit at all.
        {R"({"reste_jour_min": 0})", midiParis25Octobre, 1e6, 1e6, rien},
        {R"({"limite_jour_min": -5})", midiParis25Octobre, 1e6, 1e6, rien},
        // Over a partial block the limit becomes total with its own message; over a total one
        // the block keeps its message; the later end wins.
        {programme(plage(0, 1893452400000, jeux), R"("limite_jour_min": 1, )"), midiParis25Octobre,
         rien, 60,
         RegleMac{true, famille("jeux"), {"jeux"}, "limite", "Limite du jour", 1893452400000}},
        {programme(plage(0, midiParis25Octobre + 1, R"("titre": "Dodo")"),
                   R"("limite_jour_min": 1, )"),
         midiParis25Octobre, rien, 60, RegleMac{true, {}, {}, "moment", "Dodo", finDuJour}},
    };
    for (const auto& c : cas)
        EXPECT_EQ(Programme::regleCourante(consigne(c.consigne), c.maintenant, c.depuisConsigne,
                                           c.duJour),
                  c.attendue)
            << c.consigne << " @" << c.maintenant;

    test::FuseauFixe tokyo("Asia/Tokyo");
    EXPECT_EQ(Programme::regleCourante(consigne(R"({"limite_jour_min": 1})"), midiParis25Octobre,
                                       rien, 60)
                  ->fin,
              1792940400000) // 2026-10-26T00:00+09:00
        << "another zone, another day start";
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
