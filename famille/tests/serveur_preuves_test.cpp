// What the family server keeps as evidence: a SQLite file in a temporary folder behind a real
// server, driven through the store at chosen instants.
#include "outils_test.h"

#include <date/tz.h>
#include <gtest/gtest.h>

using namespace tavi::famille;
using namespace tavi::famille::essai;
using nlohmann::json;

namespace {

class Preuves : public AvecLea {
protected:
    // Léa's day of today in Paris, from its midnight.
    const date::time_zone& paris = *date::locate_zone("Europe/Paris");
    const std::int64_t minuit = debutJourMs(maintenantMs(), paris);
    Acces acces = *serveur.depot().authentifier(jeton);

    json battreA(std::int64_t instant, json corps) {
        return serveur.depot().battre(acces, lireBattement(corps, instant), instant);
    }
};

} // namespace

TEST_F(Preuves, LUsageDuJourNeBaisseJamaisEtLaBaisseEstNotee) {
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 60; });
    const std::int64_t midi = minuit + 12 * 3600000;
    battreA(midi, battement(40));
    EXPECT_EQ(battreA(midi + 30000, battement(3)).at("reste_jour_min"), 20.0);
    auto baisse = serveur.lignes("interruption", midi + 30000).at(0);
    EXPECT_EQ(baisse.at("genre"), "baisse");
    EXPECT_EQ(baisse.at("recu_min"), 3.0);

    // Just after midnight the agent may still send the previous day's total: it goes to that
    // day, and today starts from what today really holds.
    const std::int64_t lendemain =
        debutJourMs(minuit + 36 * 3600000, *date::locate_zone("Europe/Paris"));
    battreA(lendemain + 60000, battement(300));
    EXPECT_EQ(battreA(lendemain + 90000, battement(0.5)).at("reste_jour_min"), 59.5);
}

TEST_F(Preuves, LeRapportListeLesInterruptionsDuJourDansLOrdre) {
    const std::int64_t t = minuit + 10 * 3600000;
    auto avecDemarrage = [](std::int64_t demarrage, std::int64_t lance) {
        json corps = battement(10);
        corps["demarrage_id"] = demarrage;
        corps["agent_lance_ms"] = lance;
        return corps;
    };
    battreA(t, avecDemarrage(7, 1000));
    battreA(t + 30000, avecDemarrage(7, 1000));
    battreA(t + 70000, avecDemarrage(7, 1000)); // 40 s after the previous one
    json annonce = battement(10);
    annonce["annonce"] = "veille";
    battreA(t + 80000, annonce); // an announcement does not hide the silence that follows
    json arret = battement(10);
    arret.erase("autorisations");
    battreA(t + 85000, arret);
    battreA(t + 300000, avecDemarrage(7, 1000));
    battreA(t + 320000, avecDemarrage(7, 250000)); // same boot, agent started again
    battreA(t + 340000, avecDemarrage(8, 2000));   // another boot
    battreA(t + 360000, battement(10));            // an older agent: nothing to compare
    serveur.depot().signaler(acces, "voile_repare", "fenêtre déplacée hors de l'écran", t + 370000);
    serveur.depot().signaler(acces, "site_bloque", "jeux.example", t + 380000);

    auto lignes = serveur.lignes("interruption", t + 400000);
    std::vector<std::string> genres;
    for (const auto& ligne : lignes)
        genres.push_back(ligne.at("genre"));
    EXPECT_EQ(genres, (std::vector<std::string>{"battements_espaces", "arret", "silence",
                                                "redemarrage_agent", "redemarrage_ordinateur",
                                                "voile_repare"}));
    EXPECT_EQ(lignes[0].at("secondes"), 40);
    EXPECT_EQ(lignes[2].at("apres"), "arret");
    EXPECT_EQ(lignes[5].at("detail"), "fenêtre déplacée hors de l'écran");
    EXPECT_EQ(serveur.lignes("signal", t + 400000).size(), 1u) << "a plain signal stays one";
    const auto ordinateur = [&](std::int64_t instant) {
        return serveur.lignes("ordinateur", instant).at(0);
    };
    EXPECT_EQ(ordinateur(t + 400000).at("protection"), "active");
    EXPECT_EQ(ordinateur(t + 400000).at("derniere_annonce").at("texte"), "veille");
    EXPECT_EQ(ordinateur(t + 362000 + Depot::silenceMaxMs).at("protection"), "coupée");

    // A flood of evidence stops being stored at the quota but is still counted.
    // (The first one's silence goes into its reboot's line.)
    for (int i = 0; i < Depot::quotaJour.preuves + 5; ++i)
        battreA(t + 500000 + i, avecDemarrage(9, i));
    EXPECT_EQ(ordinateur(t + 600000).at("interruptions_non_detaillees"), 10);
}

TEST_F(Preuves, LeRapportDitCeQueLeGardienAVuUneFoisEtEcarteSonMembreFaux) {
    const std::int64_t t = minuit + 9 * 3600000;
    auto avecGardien = [](json gardien, std::int64_t demarrage = 7) {
        json corps = battement(10);
        corps["demarrage_id"] = demarrage;
        corps["gardien"] = std::move(gardien);
        return corps;
    };
    auto absence = [](std::int64_t debut, std::int64_t duree, const char* fin) {
        return json{{"debut_ms", debut}, {"duree_ms", duree}, {"fin", fin}};
    };
    const json vu = {{"agent", true},
                     {"pid", 4321},
                     {"absences", {absence(t - 20000, 12000, "relance"), absence(t, 0, "retour")}},
                     {"relances", {t - 8000}}};
    // The pairing's own first heartbeat comes from `tavi rejoindre`, before any agent.
    battreA(t - 25000, avecGardien({{"agent", false}, {"pid", 77}, {"lance_ms", t - 26000}}));
    battreA(t, avecGardien(vu));
    battreA(t + 30000, avecGardien(vu)); // the same heartbeat sent again
    json copie = {{"agent", false}, {"pid", 999}, {"executable", "/home/lea/a"}, {"lance_ms", t}};
    battreA(t + 60000, avecGardien(copie));
    battreA(t + 90000, avecGardien(copie));
    EXPECT_EQ(serveur.lignes("ordinateur", t + 90000).at(0).at("gardien").at("agent"), false);

    // A member that fails a check is set aside alone: the heartbeat is answered and stored.
    std::vector<json> membres = {json{{"agent", "oui"}, {"pid", 1}}, json::array()};
    for (json faux : {json(std::vector<json>(101, absence(t, 0, "retour"))),
                      json::array({absence(t, 1, "partie")}),
                      json::array({absence(t + 2 * 86400000, 1, "retour")}),
                      json::array({absence(t, -1, "retour")})}) {
        membres.push_back(vu);
        membres.back()["absences"] = faux;
    }
    for (std::size_t i = 0; i < membres.size(); ++i)
        EXPECT_NO_THROW(battreA(t + 120000 + 1000 * i, avecGardien(membres[i]))) << i;
    // A night off: the silence that ends on another boot goes into the reboot's line.
    battreA(t + 3600000, avecGardien(vu, 8));
    for (std::int64_t i = 1; i <= 2; ++i) // the guardian gone: noted once
        battreA(t + 3600000 + 30000 * i, battement(10));

    auto lignes = serveur.lignes("interruption", t + 3700000);
    std::vector<std::string> genres;
    for (const auto& ligne : lignes)
        genres.push_back(ligne.at("genre"));
    std::vector<std::string> attendus = {"absence_agent", "absence_agent", "relance_agent",
                                         "copie_agent"};
    attendus.insert(attendus.end(), membres.size(), "gardien_ecarte");
    attendus.insert(attendus.end(), {"redemarrage_ordinateur", "sans_gardien"});
    EXPECT_EQ(genres, attendus);
    EXPECT_EQ(lignes[0].at("duree_ms"), 12000);
    EXPECT_EQ(lignes[6].at("raison"), "« gardien.absences » a plus de 100 éléments.");
    EXPECT_EQ(lignes[lignes.size() - 2].at("secondes"), 3600 - 125);
}

TEST_F(Preuves, LeCompteDuGardienPrimeEtSesPreuvesArriventUneFois) {
    serveur.depot().modifier("Léa", [](Enfant& e) { e.reglages.limiteJourMin = 60; });
    const std::int64_t t = minuit + 12 * 3600000;
    auto avec = [&](double agent, double compte, json plus = json::object()) {
        json corps = battement(agent);
        corps["gardien"] = {{"agent", true}, {"pid", 42}, {"utilise_jour_min", compte}};
        corps["gardien"]["jour"] = jourLocal(t, paris);
        corps["gardien"].update(plus);
        return corps;
    };
    const json voile = {{{"debut_ms", t - 9000}, {"duree_ms", 3000}, {"raison", "recouvert"}}};
    json vu = {{"controle", "partiel"}, {"verrous", {t - 5000}}, {"voile_absent", voile}};
    vu["fins_session"] = {t - 4000};
    vu["absences"] = {{{"debut_ms", t - 7000}, {"duree_ms", 10}, {"fin", "arret"}}};
    EXPECT_EQ(battreA(t, avec(10, 30, vu)).at("reste_jour_min"), 30.0);
    EXPECT_EQ(serveur.lignes("ordinateur", t).at(0).at("controle"), "Wayland : contrôle partiel");
    vu["voile_absent"][0]["duree_ms"] = 8000; // told again, longer: the same one grows
    battreA(t + 30000, avec(10.5, 30.5, vu)); // sent again, the gap still open
    battreA(t + 60000, avec(31, 31));         // the gap closed
    EXPECT_EQ(battreA(t + 90000, avec(20, 40)).at("reste_jour_min"), 20.0);
    json hier = avec(31, 55, {{"jour", jourLocal(minuit - 1, paris)}});
    EXPECT_EQ(battreA(t + 100000, hier).at("reste_jour_min"), 20.0);
    EXPECT_EQ(battreA(t + 120000, avec(5, 5)).at("reste_jour_min"), 20.0);
    json faux =
        avec(31, 50, {{"voile_absent", {{{"debut_ms", t}, {"duree_ms", 1}, {"raison", "cache"}}}}});
    EXPECT_EQ(battreA(t + 150000, faux).at("reste_jour_min"), 20.0) << "the heartbeat stands";

    auto lignes = serveur.lignes("interruption", t + 200000);
    std::vector<std::string> genres;
    for (const auto& ligne : lignes)
        genres.push_back(ligne.at("genre"));
    EXPECT_EQ(genres, (std::vector<std::string>{
                          "absence_agent", "verrou_gardien", "fin_session_gardien", "voile_absent",
                          "desaccord", "baisse", "desaccord", "baisse", "gardien_ecarte"}));
    EXPECT_EQ(serveur.lignes("compte_jour", t).at(0).at("agent_min"), 31.0) << "beside 40";
    for (const auto& ligne : lignes)
        if (ligne.at("genre") == "voile_absent") {
            EXPECT_EQ(ligne.at("duree_ms"), 8000) << ligne;
        }
}
