#include "consigne.h"
#include "semaine.h"

#include <date/tz.h>
#include <gtest/gtest.h>

using namespace tavi::famille;
using nlohmann::json;

namespace {

// An instant given in UTC, in ms: the expected values are written out in UTC so that a wrong
// offset in the code under test cannot cancel out in the test.
std::int64_t utc(int annee, unsigned mois, unsigned jour, int heure, int minute = 0) {
    using namespace std::chrono;
    auto t = date::sys_days(date::year(annee) / date::month(mois) / date::day(jour)) +
             hours(heure) + minutes(minute);
    return duration_cast<milliseconds>(t.time_since_epoch()).count();
}

const date::time_zone& paris() {
    return *date::locate_zone("Europe/Paris");
}

Enfant enfant(Reglages reglages = {}) {
    return Enfant{"id-lea", "Léa", "fr", "Europe/Paris", 12.5, std::move(reglages)};
}

PlageHebdo plage(std::set<int> jours, int debut, int fin) {
    return {1, std::move(jours), debut, fin, {}, {}, {}};
}

using Intervalles = std::vector<std::pair<std::int64_t, std::int64_t>>;

// The ranges sent at `t` in `zone`, as (start, end) instants.
Intervalles intervalles(const Reglages& r, std::int64_t t, const date::time_zone& zone = paris()) {
    Intervalles liste;
    const json c = consigne(enfant(r), {}, t, zone);
    for (const auto& p : c.at("programme"))
        liste.emplace_back(p.at("debut_ms").get<std::int64_t>(),
                           p.at("fin_ms").get<std::int64_t>());
    return liste;
}

const std::set<int> tous = {0, 1, 2, 3, 4, 5, 6};

} // namespace

TEST(Consigne, LaPauseFamilleTientJusquaSaFinMemePendantUneOuverture) {
    std::int64_t t = utc(2026, 11, 22, 17);
    Reglages r;
    r.pause = Pause{t + 10 * 60000, "À table"};
    r.ouvertJusquMs = t + 30 * 60000;
    json pendant = consigne(enfant(r), {}, t, paris());
    EXPECT_EQ(pendant.at("protege_maintenant"), true);
    EXPECT_EQ(pendant.at("fin_ms"), t + 10 * 60000);
    EXPECT_EQ(pendant.at("titre"), "À table");
    EXPECT_EQ(pendant.at("ouvert_jusqu_ms"), t + 30 * 60000);
    // Integer members must be integral JSON numbers, or the agent refuses the whole document.
    for (const char* cle : {"heure_serveur_ms", "fin_ms", "ouvert_jusqu_ms"})
        EXPECT_TRUE(pendant.at(cle).is_number_integer()) << cle;
    EXPECT_FALSE(pendant.contains("filtre_web")) << "no filter set: the agent reads no browser";
    r.pause->titre.reset();
    EXPECT_FALSE(consigne(enfant(r), {}, t, paris()).contains("titre")) << "none, not null";

    json apres = consigne(enfant(r), {}, t + 10 * 60000, paris());
    EXPECT_EQ(apres.at("protege_maintenant"), false);
    for (const char* cle : {"fin_ms", "cause", "titre", "regle"})
        EXPECT_FALSE(apres.contains(cle)) << cle;
    EXPECT_FALSE(consigne(enfant(r), {}, t + 30 * 60000, paris()).contains("ouvert_jusqu_ms"));
}

TEST(Consigne, LesPlagesDeNuitTraversentMinuitEnHeureDeLEnfant) {
    Reglages r;
    r.plages = {plage(tous, 21 * 60, 7 * 60)};
    // Sunday 22 November 2026, 13:00 in Paris (UTC+1): tonight's and tomorrow's nights; last
    // night's has ended and Tuesday's starts after the 48 hours.
    EXPECT_EQ(intervalles(r, utc(2026, 11, 22, 12)),
              (Intervalles{{utc(2026, 11, 22, 20), utc(2026, 11, 23, 6)},
                           {utc(2026, 11, 23, 20), utc(2026, 11, 24, 6)}}));
    // At 03:00 in Paris the night that began yesterday is still running and is sent whole.
    EXPECT_EQ(intervalles(r, utc(2026, 11, 22, 2)).at(0),
              std::make_pair(utc(2026, 11, 21, 20), utc(2026, 11, 22, 6)));

    // Week days only: nothing starts on Sunday, Monday night is the next one.
    r.plages = {plage({0, 1, 2, 3, 4}, 21 * 60, 7 * 60)};
    EXPECT_EQ(intervalles(r, utc(2026, 11, 22, 12)),
              (Intervalles{{utc(2026, 11, 23, 20), utc(2026, 11, 24, 6)}}));
    // An end at 24:00 is the next midnight.
    r.plages = {plage({0}, 22 * 60, 1440)};
    EXPECT_EQ(intervalles(r, utc(2026, 11, 22, 12)),
              (Intervalles{{utc(2026, 11, 23, 21), utc(2026, 11, 23, 23)}}));
}

TEST(Consigne, LesPlagesSuiventLesChangementsDHeureDuFuseau) {
    Reglages r;
    r.plages = {plage(tous, 21 * 60, 7 * 60)};
    // 25 October 2026: 03:00 summer time becomes 02:00 winter time, the night lasts 11 hours.
    EXPECT_EQ(intervalles(r, utc(2026, 10, 24, 12)),
              (Intervalles{{utc(2026, 10, 24, 19), utc(2026, 10, 25, 6)},
                           {utc(2026, 10, 25, 20), utc(2026, 10, 26, 6)}}));
    // 29 March 2026: 02:00 winter time becomes 03:00 summer time, the night lasts 9 hours.
    EXPECT_EQ(intervalles(r, utc(2026, 3, 28, 12)).at(0),
              std::make_pair(utc(2026, 3, 28, 20), utc(2026, 3, 29, 5)));
    // The same weekly range in another zone lands elsewhere in absolute time.
    EXPECT_EQ(intervalles(r, utc(2026, 11, 22, 18), *date::locate_zone("America/New_York")).at(0),
              std::make_pair(utc(2026, 11, 23, 2), utc(2026, 11, 23, 12)));

    // A range starting in the skipped hour starts at the jump; one inside it disappears.
    r.plages = {plage({6}, 2 * 60 + 30, 4 * 60), plage({6}, 2 * 60 + 10, 2 * 60 + 50)};
    EXPECT_EQ(intervalles(r, utc(2026, 3, 28, 12)),
              (Intervalles{{utc(2026, 3, 29, 1), utc(2026, 3, 29, 2)}}));
}

TEST(Consigne, UnePlagePorteSaRegleSaCauseEtSonTitre) {
    Reglages r;
    PlageHebdo devoirs = plage(tous, 17 * 60, 18 * 60);
    devoirs.familles = std::set<std::string>{"jeux", "videos"};
    devoirs.cause = "gage";
    devoirs.titre = "Devoirs";
    r.plages = {devoirs, plage(tous, 19 * 60, 20 * 60)};
    json programme = consigne(enfant(r), {}, utc(2026, 11, 22, 12), paris()).at("programme");
    EXPECT_EQ(programme.at(0).at("regle"),
              json({{"mode", "familles"}, {"familles", json::array({"jeux", "videos"})}}));
    EXPECT_EQ(programme.at(0).at("cause"), "gage");
    EXPECT_EQ(programme.at(0).at("titre"), "Devoirs");
    EXPECT_TRUE(programme.at(0).at("debut_ms").is_number_integer());
    EXPECT_EQ(programme.at(1), json({{"debut_ms", utc(2026, 11, 22, 18)},
                                     {"fin_ms", utc(2026, 11, 22, 19)},
                                     {"regle", {{"mode", "tout"}}}}));
}

TEST(Consigne, LeResteDuJourEtLesLimitesDApplisComptentLesAutresOrdinateurs) {
    std::int64_t t = utc(2026, 11, 22, 12);
    EXPECT_FALSE(consigne(enfant(), {35, 10, {}}, t, paris()).contains("reste_jour_min"));

    Reglages r;
    r.limiteJourMin = 60;
    r.limitesApplis = {{"jeux", "Jeux", 30, {"steam", "minecraft"}},
                       {"video.2", "Vidéo", 20, {"vlc"}}};
    UsageDuJour usage{35.3, 10, {{"steam", 5}, {"minecraft", 2.5}, {"firefox", 9}}};
    json c = consigne(enfant(r), usage, t, paris());
    EXPECT_EQ(c.at("reste_jour_min"), 34.7);
    EXPECT_EQ(consigne(enfant(r), {80, 10, {}}, t, paris()).at("reste_jour_min"), 0.0);
    EXPECT_EQ(c.at("limites_autres"), json({{"jeux", 7.5}, {"video.2", 0.0}}));
    EXPECT_FALSE(idLimiteValide("temps_jeux")) << "the agent would read this key as tempsJeux";
    EXPECT_TRUE(idLimiteValide("jeux-video.2"));
}

TEST(Semaine, LesJoursEtLesHeuresSeLisentCommeLesParentsLesEcrivent) {
    EXPECT_EQ(lireJours("tous"), tous);
    EXPECT_EQ(lireJours("lu-me,ve"), (std::set<int>{0, 1, 2, 4}));
    for (const char* faux : {"", "ve-lu", "lu,", "Lu"})
        EXPECT_FALSE(lireJours(faux)) << faux;
    EXPECT_EQ(ecrireJours({0, 1, 2, 3, 4}), "lu,ma,me,je,ve");
    EXPECT_EQ(lireHeure("07:05", false), 425);
    EXPECT_EQ(lireHeure("24:00", true), 1440);
    for (const char* faux : {"24:00", "7:00", "12:60"})
        EXPECT_FALSE(lireHeure(faux, false)) << faux;
}
