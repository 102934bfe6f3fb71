#include "famille_locale.h"
#include "support/serveur_http.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace tavi {
namespace {

using nlohmann::json;
using test::lignes;

// The agent's self-test against the reference family server, both as shipped: the server on
// a free loopback port over a fresh base, the parents' commands on the same base. The agent
// runs with throwaway home and state folders and no session bus.
class AgentEtFamille : public testing::Test {
protected:
    test::Sortie famille(std::vector<std::string> arguments) {
        return parents.commande(std::move(arguments));
    }
    json famille1(const std::vector<std::string>& arguments) {
        return parents.commande1(arguments);
    }
    test::Sortie essai(const std::string& adresse, const std::string& code) {
        return test::executer({TAVI_HOME_BINAIRE, "--essai-api", adresse, code}, "",
                              {{"HOME", (dossier / "maison").string()},
                               {"XDG_STATE_HOME", (dossier / "etat").string()},
                               {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}});
    }

    test::FamilleLocale parents;
    const test::DossierTemporaire& dossier = parents.dossier();
};

TEST_F(AgentEtFamille, LEssaiApiRejointBatEtDemandeDuTempsAuServeurDeReference) {
    famille1({"enfant", "ajouter", "Léa", "--fuseau", "Europe/Paris"});
    famille1({"limite", "Léa", "90"});
    famille1({"plage", "Léa", "tous", "21:00", "07:00", "--familles", "jeux", "--titre", "Dodo"});
    famille1({"rapports", "Léa", "applis", "on"});
    const std::string code = famille1({"code", "Léa"})["code"];

    ASSERT_TRUE(parents.servir());
    const std::string adresse = parents.adresse();

    test::Sortie s = essai(adresse, code);
    ASSERT_EQ(s.statut, 0) << s.out << s.err;
    auto l = lignes(s.out);
    ASSERT_EQ(l.size(), 4u) << s.out;
    EXPECT_NE(l[1].find("enfant Léa (langue fr)"), std::string::npos) << l[1];
    for (const char* membre : {"heure_serveur_ms", "prenom", "programme", "limite_jour_min",
                               "reste_jour_min", "rapport_applis"})
        EXPECT_NE(l[2].find(membre), std::string::npos) << membre << " in " << l[2];

    // The parents see the computer, with its protection running.
    test::Sortie rapport = famille({"rapport", "Léa"});
    EXPECT_NE(rapport.out.find("\"linux\""), std::string::npos) << rapport.out;
    EXPECT_NE(rapport.out.find("active"), std::string::npos) << rapport.out;

    // What the server answers, the agent's strict decoder reads.
    test::Sortie consigne = famille({"consigne", "Léa"});
    test::Sortie decodee = test::executer({TAVI_BINAIRE, "consigne"}, consigne.out);
    EXPECT_EQ(decodee.statut, 0) << decodee.err << consigne.out;

    // An address that is not http(s) is refused before any step.
    s = essai("pas une adresse", code);
    EXPECT_EQ(s.statut, 2);
    EXPECT_EQ(s.out, "");
    EXPECT_EQ(parents.arreter(), 0);
    EXPECT_FALSE(std::filesystem::exists(dossier / "etat")) << "the self-test kept state";
}

// A server that writes escape sequences, bells, line breaks, C1 controls and broken UTF-8 in
// the texts the self-test prints.
TEST_F(AgentEtFamille, LEssaiApiEchappeLeTexteDUnServeurHostileEtNeMontreJamaisLeJeton) {
    const std::string hostile = "\x1b]0;titre\x07\x1b[2J\rok battement\r\nok demande\x7f\xc2\x9b"
                                "31m";
    test::ServeurHttp serveur;
    serveur.route("POST", "/api/auth/ordinateur", [&](const auto&, auto& res) {
        res.set_content(json{{"jeton", "jeton-tres-secret"},
                             {"enfant", {{"id", "e1"}, {"prenom", "Léa 🦊" + hostile}}},
                             {"ordinateur", {{"id", "o7"}, {"nom", hostile}}}}
                            .dump(),
                        "application/json");
    });
    serveur.route("POST", "/api/enfant/battement", [](const auto&, auto& res) {
        res.set_content("{\"prenom\": \"\xff\xc0\xaf\x1b[2J\"}", "application/json");
    });
    serveur.route("POST", "/api/enfant/demandes", [&](const auto&, auto& res) {
        res.status = 403;
        res.set_content(json{{"detail", hostile}}.dump(), "application/json");
    });
    serveur.demarrer();

    test::Sortie s = essai(serveur.adresse(), "ABCD2345");
    EXPECT_EQ(s.statut, 1) << s.out << s.err;
    auto l = lignes(s.out);
    ASSERT_EQ(l.size(), 4u) << s.out;
    const std::string echappe =
        "\\x1b]0;titre\\x07\\x1b[2J\\x0dok battement\\x0d\\x0aok demande\\x7f\\u{9b}31m";
    EXPECT_EQ(l[1].rfind("ok rejoindre : enfant Léa 🦊" + echappe, 0), 0u) << l[1];
    EXPECT_EQ(l[2].rfind("échec battement : consigne illisible", 0), 0u) << l[2];
    EXPECT_EQ(l[3], "échec demande : 403 " + echappe);
    for (const char* brut : {"\x1b", "\x07", "\r", "\x7f", "\xc2\x9b", "\xff", "\xc0"})
        EXPECT_EQ(s.out.find(brut), std::string::npos) << int(brut[0]);
    EXPECT_EQ((s.out + s.err).find("jeton-tres-secret"), std::string::npos);
    EXPECT_EQ(serveur.requetes()[1].entete("Authorization"), "Bearer jeton-tres-secret");
}

} // namespace
} // namespace tavi
