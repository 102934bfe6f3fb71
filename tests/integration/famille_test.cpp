#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tavi {
namespace {

using nlohmann::json;

// The agent's self-test against the reference family server, both as shipped: the server on
// a free loopback port over a fresh base, the parents' commands on the same base.
class AgentEtFamille : public testing::Test {
protected:
    test::Sortie famille(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {TAVI_FAMILLE_BINAIRE, "--base", base()});
        return test::executer(arguments);
    }
    json famille1(const std::vector<std::string>& arguments) {
        test::Sortie s = famille(arguments);
        EXPECT_EQ(s.statut, 0) << s.err;
        return json::parse(s.out.substr(0, s.out.find('\n')), nullptr, false);
    }
    test::Sortie agent(const std::vector<std::string>& arguments, const std::string& entree = "") {
        std::vector<std::string> commande = {TAVI_HOME_BINAIRE};
        commande.insert(commande.end(), arguments.begin(), arguments.end());
        return test::executer(commande, entree,
                              {{"HOME", dossier.chemin().string()},
                               {"XDG_STATE_HOME", (dossier / "etat").string()},
                               {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}});
    }
    std::string base() const { return (dossier / "famille.db").string(); }

    test::DossierTemporaire dossier;
};

TEST_F(AgentEtFamille, LEssaiApiRejointBatEtDemandeDuTempsAuServeurDeReference) {
    famille1({"enfant", "ajouter", "Léa", "--fuseau", "Europe/Paris"});
    famille1({"limite", "Léa", "90"});
    famille1({"plage", "Léa", "tous", "21:00", "07:00", "--familles", "jeux", "--titre", "Dodo"});
    famille1({"rapports", "Léa", "applis", "on"});
    const std::string code = famille1({"code", "Léa"})["code"];

    test::Processus serveur({TAVI_FAMILLE_BINAIRE, "--base", base(), "servir", "--adresse",
                             "127.0.0.1:0"});
    const json ecoute = json::parse(serveur.ligne(), nullptr, false);
    ASSERT_TRUE(ecoute.contains("port")) << ecoute;
    const std::string adresse = "http://127.0.0.1:" + std::to_string(ecoute["port"].get<int>());

    test::Sortie s = agent({"--essai-api", adresse, code});
    ASSERT_EQ(s.statut, 0) << s.out << s.err;
    std::istringstream lignes(s.out);
    std::vector<std::string> l;
    for (std::string ligne; std::getline(lignes, ligne);) l.push_back(ligne);
    ASSERT_EQ(l.size(), 4u) << s.out;
    EXPECT_NE(l[1].find("enfant Léa (langue fr)"), std::string::npos) << l[1];
    for (const char* membre : {"heure_serveur_ms", "prenom", "programme", "limite_jour_min",
                               "reste_jour_min", "rapport_applis"})
        EXPECT_NE(l[2].find(membre), std::string::npos) << membre << " in " << l[2];

    // The parents see the request and the computer, with its protection running.
    const json demande = famille1({"demandes", "Léa"});
    EXPECT_EQ(demande["demande"]["minutes"], 10) << demande;
    EXPECT_EQ(demande["demande"]["texte"], "Sur mon ordinateur");
    test::Sortie rapport = famille({"rapport", "Léa"});
    EXPECT_NE(rapport.out.find("\"linux\""), std::string::npos) << rapport.out;
    EXPECT_NE(rapport.out.find("active"), std::string::npos) << rapport.out;

    // What the server answers, the agent's strict decoder reads.
    test::Sortie consigne = famille({"consigne", "Léa"});
    test::Sortie decodee = test::executer({TAVI_BINAIRE, "consigne"}, consigne.out);
    EXPECT_EQ(decodee.statut, 0) << decodee.err << consigne.out;

    // A code is good once.
    s = agent({"--essai-api", adresse, code});
    EXPECT_EQ(s.statut, 1);
    EXPECT_NE(s.out.find("échec rejoindre : 400 Code inconnu ou expiré."), std::string::npos)
        << s.out;
    EXPECT_EQ(serveur.arreter(), 0);
}

} // namespace
} // namespace tavi
