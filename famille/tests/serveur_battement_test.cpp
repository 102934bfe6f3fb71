// A tavi-famille server on a free loopback port, SQLite in a temporary folder, and real HTTP.
#include "lecture.h"
#include "outils_test.h"
#include "temps.h"

#include <atomic>
#include <date/tz.h>
#include <gtest/gtest.h>
#include <thread>

using namespace tavi::famille;
using namespace tavi::famille::essai;
using nlohmann::json;

namespace {
class Battements : public AvecLea {};
} // namespace

TEST_F(Battements, ChaqueLotDuBattementEstEnregistre) {
    std::int64_t heure = maintenantMs() / 3600000 * 3600000;
    std::string aujourdhui = jourLocal(maintenantMs(), *date::locate_zone("Europe/Paris"));
    std::string hier = jourLocal(maintenantMs() - 86400000, *date::locate_zone("UTC"));
    auto lot = [&](double utilise, json site, json jours, json installees) {
        json corps = battement(utilise);
        corps["sites"] = {std::move(site)};
        corps["usage_applis"] = {{"jours", std::move(jours)}, {"noms", {{"firefox", "Firefox"}}}};
        corps["applis_installees"] = std::move(installees);
        return battre(corps)->status;
    };
    ASSERT_EQ(lot(42.5,
                  {{"d", "exemple.fr"}, {"p", heure + 1000}, {"f", heure + 5000}, {"s", 3000}},
                  {{aujourdhui, {{"firefox", 30.5}}}, {hier, {{"vlc", 3.0}}}},
                  {{{"p", "firefox"}, {"n", "Firefox"}, {"c", "web"}}}),
              200);
    // The next batch: more time on a site in the same hour (capped at an hour), a day of app
    // usage restated, a new list of installed applications.
    ASSERT_EQ(lot(43, {{"d", "exemple.fr"}, {"p", heure + 6000}, {"f", heure + 9000}, {"s", 900}},
                  {{aujourdhui, {{"firefox", 31.0}}}}, {{{"p", "vlc"}, {"n", "VLC"}}}),
              200);

    EXPECT_EQ(serveur.lignes("ordinateur").at(0).at("utilise_jour_min"), 43.0);
    EXPECT_EQ(serveur.lignes("appli").at(0).at("minutes"), 31.0);
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM usage_applis WHERE jour = '" + hier + "'"), 1)
        << "a day missing from a batch keeps what it had";
    EXPECT_EQ(serveur.lignes("site"),
              std::vector<json>{json(
                  {{"domaine", "exemple.fr"}, {"secondes", 3600}, {"dernier_ms", heure + 9000}})});
    auto installees = serveur.lignes("installee");
    ASSERT_EQ(installees.size(), 1u) << "the new list replaces the old one";
    EXPECT_EQ(installees[0].at("id"), "vlc");
}

TEST_F(Battements, LeResteDuJourCompteChaqueOrdinateurEtSurvitAUnRedemarrage) {
    std::string fixe = serveur.appairer("Léa", "pc-2");
    serveur.depot().modifier("Léa", [](Enfant& e) {
        e.reglages.limiteJourMin = 60;
        e.reglages.limitesApplis = {{"jeux", "Jeux", 30, {"steam", "minecraft"}}};
    });
    auto avec = [](double jour, double steam) {
        json corps = battement(jour);
        corps["minutes_limites"] = {{"steam", steam}};
        return corps;
    };
    battre(avec(20, 8));
    json c2 = corpsJson(poster(client, "/api/enfant/battement", avec(15, 3), fixe));
    EXPECT_EQ(c2.at("reste_jour_min"), 25.0);
    EXPECT_EQ(c2.at("limites_autres"), json({{"jeux", 8.0}}));

    // A computer's higher figure replaces its previous one; the figures and the tokens
    // survive a restart.
    serveur.redemarrer();
    auto apres = serveur.client();
    json c3 = corpsJson(poster(apres, "/api/enfant/battement", avec(22, 9), jeton));
    EXPECT_EQ(c3.at("reste_jour_min"), 23.0);
    EXPECT_EQ(c3.at("limites_autres"), json({{"jeux", 3.0}}));
}

TEST_F(Battements, UnCorpsMalFormeOuTropGrosEstRefuseSansRienEnregistrer) {
    auto avec = [](const char* cle, json valeur) {
        json corps = battement(10);
        corps[cle] = std::move(valeur);
        return corps.dump();
    };

    const std::vector<std::pair<std::string, std::string>> mauvais = {
        {"pas du JSON", "JSON"},
        {"[1, 2]", "objet"},
        {"{}", "« actif »"},
        {avec("utilise_jour_min", "10"), "« utilise_jour_min »"},
        {battement(-1).dump(), "« utilise_jour_min »"},
        {avec("sites", {{{"d", "a.fr"}, {"p", 1}, {"f", 2}, {"s", 1.5}}}), "« sites[0].s »"},
        {avec("usage_applis", {{"jours", {{"2024-02-31", {{"vlc", 1}}}}}}), "2024-02-31"},
        {avec("agent_lance_ms", 1LL << 53), "« agent_lance_ms »"},
        // Deep nesting is refused before parsing: it would cost memory and stack out of all
        // proportion to its size.
        {std::string(100000, '[') + std::string(100000, ']'), "JSON"},
    };
    for (const auto& [corps, attendu] : mauvais) {
        auto reponse = posterTexte(client, "/api/enfant/battement", corps, jeton);
        ASSERT_TRUE(reponse) << corps.substr(0, 60);
        EXPECT_EQ(reponse->status, 400) << corps.substr(0, 60);
        EXPECT_NE(reponse->body.find(attendu), std::string::npos)
            << corps.substr(0, 60) << " → " << reponse->body;
    }

    json gros = battement(10);
    gros["annonce"] = std::string(tailleMaxCorps, 'x');
    EXPECT_EQ(posterTexte(client, "/api/enfant/battement", gros.dump(), jeton)->status, 400);
    EXPECT_TRUE(serveur.lignes("ordinateur").at(0).at("derniere_nouvelle_ms").is_null())
        << "nothing of a refused message is stored";
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM usage_jour"), 0);
    // A NUL inside a key is still a key: it is stored as sent, escaped when written out.
    json nul = battement(10);
    nul["autorisations"][std::string("auto\0matisation", 16)] = true;
    auto bon = serveur.client();
    EXPECT_EQ(poster(bon, "/api/enfant/battement", nul, jeton)->status, 200);
}

TEST_F(Battements, UnJetonNeRemplitPasLaBase) {
    serveur.depot().modifier("Léa", [](Enfant& e) {
        e.reglages.limitesApplis = {{"jeux", "Jeux", 30, {"steam"}}};
    });
    const std::int64_t maintenant = maintenantMs();
    const std::string aujourdhui = jourLocal(maintenant, *date::locate_zone("Europe/Paris"));
    const std::string hier = jourLocal(maintenant - 24 * 3600000, *date::locate_zone("UTC"));
    json jour, noms;
    for (int i = 0; i < Depot::quotaJour.applis + 500; ++i) {
        jour["appli" + std::to_string(i)] = i * 0.5;
        noms["appli" + std::to_string(i)] = "Appli";
    }
    json corps = battement(10);
    corps["usage_applis"] = {
        {"jours",
         {{hier, {{"vlc", 1000}}}, {"2999-01-01", {{"vlc", 1}}}, {"2020-01-01", {{"vlc", 1}}}}},
        {"noms", {{"vlc", "VLC"}}}};
    ASSERT_EQ(battre(corps)->status, 200);
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM usage_applis"), 1)
        << "days outside the kept ones are dropped";
    corps["usage_applis"] = {{"jours", {{aujourdhui, jour}}}, {"noms", noms}};
    corps["minutes_limites"] = {{"steam", 5}, {"inventee", 5}};
    ASSERT_EQ(battre(corps)->status, 200);
    ASSERT_EQ(battre(corps)->status, 200) << "a restated day is not new";

    EXPECT_EQ(serveur.compter("SELECT (SELECT COUNT(*) FROM usage_applis) + "
                              "(SELECT COUNT(*) FROM noms_applis)"),
              Depot::quotaJour.applis)
        << "uses and names share the quota";
    EXPECT_EQ(serveur.compter("SELECT MIN(minutes) FROM usage_applis"), 251)
        << "past the quota the most used are kept";
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM minutes_limites"), 1)
        << "only the applications the parents limit";

    // Rows a client could leave from before these bounds are pruned: a day after every
    // zone's today, a name without use.
    serveur.depot().base().executer(
        "INSERT INTO usage_applis SELECT id, '2999-01-01', 'vlc', 1 FROM ordinateurs;"
        "INSERT INTO noms_applis SELECT id, 'orpheline', 'X' FROM ordinateurs;");
    serveur.depot().elaguer(maintenant);
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM usage_applis WHERE jour > '2100'"), 0);
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM noms_applis WHERE appli = 'orpheline'"), 0);
    EXPECT_EQ(serveur.compter("SELECT COUNT(*) FROM noms_applis"), 1) << "a name in use stays";
}

TEST(Schema, UneBaseDeVersion2EstMiseAJourALOuverture) {
    DossierTemporaire dossier;
    const std::string chemin = (dossier / "famille.db").string();
    Depot(chemin, Base::Ouverture::creer)
        .base()
        .executer("ALTER TABLE ordinateurs DROP COLUMN dernier_battement_ms;"
                  "ALTER TABLE ordinateurs DROP COLUMN demarrage_id;"
                  "ALTER TABLE ordinateurs DROP COLUMN agent_lance_ms;"
                  "ALTER TABLE volumes_jour DROP COLUMN applis;"
                  "ALTER TABLE volumes_jour DROP COLUMN preuves;"
                  "DROP INDEX evenements_cle; ALTER TABLE evenements DROP COLUMN cle_ms;"
                  "ALTER TABLE usage_jour DROP COLUMN agent_min;"
                  "ALTER TABLE usage_jour DROP COLUMN gardien_min;"
                  "ALTER TABLE usage_jour DROP COLUMN en_desaccord;"
                  "PRAGMA user_version = 2;");
    Depot depot(chemin, Base::Ouverture::existante);
    const std::int64_t t = maintenantMs();
    depot.ajouterEnfant("Léa", "fr", "Europe/Paris", t);
    auto jeton = depot.appairer(depot.creerCode("Léa", t).code, "pc-1", "PC", "0.1.0", t)->jeton;
    json corps = battement(10);
    corps["gardien"] = {{"agent", true}, {"pid", 1}, {"relances", {t}}};
    for (int fois = 0; fois < 2; ++fois)
        depot.battre(*depot.authentifier(jeton), lireBattement(corps, t), t);
    const auto rapport = depot.rapport("Léa", t);
    EXPECT_EQ(rapport.at(1).at("ordinateur").at("utilise_jour_min"), 10.0);
    EXPECT_EQ(rapport.back().at("interruption").at("genre"), "relance_agent");
    EXPECT_FALSE(rapport.at(rapport.size() - 2).contains("interruption")) << "stored twice";
}

TEST(Charge, CinquanteOrdinateursBattentEnMemeTempsSansErreur) {
    OptionsServeur options;
    options.connexionsParAdresse = 64; // every client here has the same address
    ServeurEssai serveur(options);
    serveur.depot().ajouterEnfant("Léa", "fr", "Europe/Paris", maintenantMs());
    serveur.depot().modifier("Léa", [](Enfant& x) { x.reglages.limiteJourMin = 600; });
    std::vector<std::string> jetons;
    for (int o = 0; o < 50; ++o)
        jetons.push_back(serveur.appairer("Léa", "pc-" + std::to_string(o)));
    std::atomic<int> echecs = 0;
    std::vector<std::thread> ordinateurs;
    for (const auto& jeton : jetons)
        ordinateurs.emplace_back([&] {
            auto client = serveur.client();
            for (int tour = 1; tour <= 5; ++tour) {
                auto reponse = poster(client, "/api/enfant/battement", battement(tour), jeton);
                echecs += !reponse || reponse->status != 200;
            }
        });
    for (auto& t : ordinateurs)
        t.join();
    EXPECT_EQ(echecs, 0);
    auto c =
        serveur.depot().consigneDe(serveur.depot().enfant("Léa"), std::nullopt, maintenantMs());
    EXPECT_EQ(c.at("reste_jour_min"), 600.0 - 5 * 50) << "one computer's figure was lost";
}
