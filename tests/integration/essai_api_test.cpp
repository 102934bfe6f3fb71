#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/serveur_http.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tavi {
namespace {

using nlohmann::json;

std::vector<std::string> lignes(const std::string& texte) {
    std::vector<std::string> resultat;
    std::istringstream flux(texte);
    for (std::string ligne; std::getline(flux, ligne);)
        resultat.push_back(ligne);
    return resultat;
}

// The self-test runs with a private state: the agent's real folders must stay empty.
class EssaiApi : public testing::Test {
protected:
    test::Sortie essayer(const std::vector<std::string>& arguments) {
        std::vector<std::string> commande = {TAVI_HOME_BINAIRE};
        commande.insert(commande.end(), arguments.begin(), arguments.end());
        return test::executer(commande, "",
                              {{"HOME", maison.chemin().string()},
                               {"XDG_STATE_HOME", (maison / "etat").string()},
                               {"XDG_DATA_HOME", (maison / "donnees").string()},
                               {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}});
    }
    bool maisonVide() const { return std::filesystem::is_empty(maison.chemin()); }

    test::DossierTemporaire maison;
    test::ServeurHttp serveur;
};

TEST_F(EssaiApi, RejointBatEtDemandeSansJamaisMontrerLeJeton) {
    serveur.route("POST", "/api/auth/ordinateur", [](const auto& req, auto& res) {
        bool bon = json::parse(req.body).value("code", "") == "ABCD2345";
        res.status = bon ? 200 : 404;
        res.set_content(bon ? R"({"jeton": "jeton-tres-secret", "enfant": {"id": "e1",
            "prenom": "Léa", "langue": "fr"}, "ordinateur": {"id": "o7", "nom": "PC de Léa"}})"
                            : R"({"detail": "Code inconnu ou expiré."})",
                        "application/json");
    });
    serveur.route("POST", "/api/enfant/battement", [](const auto& req, auto& res) {
        bool relie = req.get_header_value("Authorization") == "Bearer jeton-tres-secret";
        res.status = relie ? 200 : 401;
        res.set_content(relie ? R"({"heure_serveur_ms": 1795392000000, "prenom": "Léa",
            "rapport_applis": {"actif": true}})"
                              : R"({"detail": "Qui es-tu ?"})",
                        "application/json");
    });
    serveur.route("POST", "/api/enfant/demandes", [](const auto&, auto& res) {
        res.status = 201;
        res.set_content("{}", "application/json");
    });
    serveur.demarrer();

    test::Sortie s = essayer({"--essai-api", serveur.adresse(), "ABCD2345"});
    EXPECT_EQ(s.statut, 0) << s.out << s.err;
    auto l = lignes(s.out);
    ASSERT_EQ(l.size(), 4u) << s.out;
    for (const auto& ligne : l)
        EXPECT_EQ(ligne.rfind("ok ", 0), 0u) << ligne;
    EXPECT_NE(l[0].find(serveur.adresse()), std::string::npos);
    EXPECT_NE(l[1].find("Léa"), std::string::npos);
    EXPECT_NE(l[1].find("o7"), std::string::npos);
    EXPECT_NE(l[2].find("heure_serveur_ms, prenom, rapport_applis"), std::string::npos) << l[2];
    EXPECT_NE(l[2].find("2026-11-23T00:00:00Z"), std::string::npos) << l[2];
    EXPECT_EQ((s.out + s.err).find("jeton-tres-secret"), std::string::npos);

    const auto requetes = serveur.requetes();
    ASSERT_EQ(requetes.size(), 3u);
    const std::string installation = requetes[0].entete("X-Tavi-Installation");
    EXPECT_NE(l[0].find(installation), std::string::npos);
    json battement = json::parse(requetes[1].corps);
    EXPECT_EQ(battement["incertain"], true);
    EXPECT_EQ(battement["plateforme"], "linux");
    EXPECT_TRUE(battement["actif"].is_boolean());
    EXPECT_TRUE(battement["version"].is_string());
    EXPECT_FALSE(battement["systeme"].get<std::string>().empty());
    EXPECT_TRUE(battement["autorisations"]["ouverture_session"].is_boolean());
    EXPECT_TRUE(battement["autorisations"]["automatisation"].is_boolean());
    EXPECT_EQ(battement["utilise_jour_min"], 0.0);
    EXPECT_EQ(json::parse(requetes[2].corps)["minutes"], 10);
    EXPECT_EQ(requetes[2].entete("Authorization"), "Bearer jeton-tres-secret");
    EXPECT_TRUE(maisonVide());

    // A refused code: the line says the status and the server's words; the other steps fail.
    s = essayer({"--essai-api", serveur.adresse(), "MAUVAIS1"});
    EXPECT_EQ(s.statut, 1);
    l = lignes(s.out);
    ASSERT_EQ(l.size(), 4u) << s.out;
    EXPECT_EQ(l[1], "échec rejoindre : 404 Code inconnu ou expiré.");
    EXPECT_EQ(l[2].rfind("échec battement", 0), 0u);
    EXPECT_TRUE(maisonVide());
}

TEST_F(EssaiApi, SansServeurJoignableChaqueEtapeEchoueEtLeStatutEst1) {
    test::Sortie s = essayer({"--essai-api", "http://127.0.0.1:1", "ABCD2345"});
    EXPECT_EQ(s.statut, 1);
    auto l = lignes(s.out);
    ASSERT_EQ(l.size(), 4u) << s.out;
    EXPECT_EQ(l[0].rfind("ok serveur http://127.0.0.1:1", 0), 0u);
    EXPECT_EQ(l[1].rfind("échec rejoindre : pas de réponse HTTP", 0), 0u) << l[1];
}

TEST_F(EssaiApi, LesArgumentsNeDeclenchentLEssaiQueSousLeurFormeExacte) {
    test::Sortie s = essayer({"--essai-api", "pas une adresse", "CODE"});
    EXPECT_EQ(s.statut, 2);
    EXPECT_EQ(s.out, "");
    EXPECT_NE(s.err.find("pas une adresse"), std::string::npos);
    // With one value the option does not count: the agent starts normally, no self-test.
    serveur.demarrer();
    s = essayer({"--essai-api", serveur.adresse()});
    EXPECT_EQ(s.out.find("serveur"), std::string::npos) << s.out;
    EXPECT_TRUE(serveur.requetes().empty());
}

} // namespace
} // namespace tavi
