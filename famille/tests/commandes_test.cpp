#include "commandes.h"
#include "outils_test.h"

#include <gtest/gtest.h>
#include <sstream>

using namespace tavi::famille;
using namespace tavi::famille::essai;
using nlohmann::json;

namespace {

struct Resultat {
    int statut;
    std::string sortie;
    std::string erreurs;
};

// Runs one command line in this process, as main() would, on the given base.
Resultat commande(const std::filesystem::path& base, std::vector<std::string> mots) {
    mots.insert(mots.begin(), {"--base", base.string()});
    std::ostringstream sortie, erreurs;
    int statut = executer(mots, sortie, erreurs);
    return {statut, sortie.str(), erreurs.str()};
}

json ligne(const Resultat& r) {
    EXPECT_EQ(r.statut, 0) << r.erreurs;
    return json::parse(r.sortie.substr(0, r.sortie.find('\n')), nullptr, false);
}

} // namespace

TEST(Commandes, UneCommandeRefuseeSortEnStatutDeuxSansRienChanger) {
    DossierTemporaire dossier;
    auto base = dossier / "famille.db";
    ligne(commande(base, {"enfant", "ajouter", "Léa", "--fuseau", "Europe/Paris"}));
    ligne(commande(base, {"tirelire", "Léa", "+3"}));
    auto avant = commande(base, {"reglages", "Léa"}).sortie;

    const std::vector<std::vector<std::string>> refusees = {
        {},
        {"danser"},
        {"pause", "Léa", "abc"},
        {"pause", "Zoé", "5"},
        {"limite", "Léa", "60", "de-trop"},
        {"plage", "Léa", "ve-lu", "21:00", "07:00"},
        {"plage", "Léa", "lu", "21:00", "21:00"},
        {"plage", "Léa", "lu", "21:00", "07:00", "--familles", "jeu"},
        {"limite-appli", "Léa", "temps_jeux", "Jeux", "30", "steam"},
        {"filtre", "Léa", "actif", "--bloquer", "pas un domaine"},
        {"tirelire", "Léa", "-5"},
        {"fuseau", "Léa", "Lune/Tranquillite"},
        {"reaction-voile", "Léa", "fermer"},
        {"enfant", "ajouter", "Léa"},
        {"enfant", "ajouter", "\xff\xfe"},
    };
    for (const auto& mots : refusees) {
        SCOPED_TRACE(testing::PrintToString(mots));
        auto r = commande(base, mots);
        EXPECT_EQ(r.statut, 2);
        EXPECT_FALSE(r.erreurs.empty());
    }
    EXPECT_EQ(commande(base, {"reglages", "Léa"}).sortie, avant);

    EXPECT_EQ(commande(dossier / "absente.db", {"enfants"}).statut, 2);
    EXPECT_FALSE(std::filesystem::exists(dossier / "absente.db"));
}

TEST(Commandes, LesReglagesDesParentsArriventDansLaConsigneEtSeDefont) {
    DossierTemporaire dossier;
    auto base = dossier / "famille.db";
    ligne(commande(base, {"enfant", "ajouter", "Léa", "--fuseau", "Europe/Paris"}));
    auto consigneDeLea = [&] {
        json c = ligne(commande(base, {"consigne", "Léa"}));
        c.erase("heure_serveur_ms");
        return c;
    };
    json initiale = consigneDeLea();
    EXPECT_EQ(initiale.at("reaction_voile"), "verrouiller");
    auto pause = ligne(commande(base, {"pause", "Léa", "10", "--titre", "À table"}));
    for (const std::vector<std::string>& regler :
         {std::vector<std::string>{"ouvrir", "Léa", "30"},
          {"limite", "Léa", "90"},
          {"plage", "Léa", "tous", "21:00", "07:00", "--familles", "jeux,videos"},
          {"limite-appli", "Léa", "jeux", "Jeux", "30", "steam", "minecraft"},
          {"couper", "Léa", "discord"},
          {"filtre", "Léa", "actif", "--bloquer", "https://WWW.Exemple.fr/page?x=1", "--autoriser",
           "wikipedia.org"},
          {"rapports", "Léa", "applis", "on"},
          {"reaction-voile", "Léa", "fermer_session"},
          {"tirelire", "Léa", "+20"}})
        ligne(commande(base, regler));

    json c = consigneDeLea();
    EXPECT_EQ(c.at("fin_ms"), pause.at("pause").at("fin_ms"));
    EXPECT_EQ(c.at("titre"), "À table");
    EXPECT_TRUE(c.contains("ouvert_jusqu_ms"));
    EXPECT_EQ(c.at("limite_jour_min"), 90.0);
    EXPECT_EQ(c.at("programme").at(0).at("regle").at("familles"), json({"jeux", "videos"}));
    EXPECT_EQ(c.at("mac"), json::parse(R"({"coupees": ["discord"], "limites": [{"id": "jeux",
        "nom": "Jeux", "minutes": 30.0, "applis": ["minecraft", "steam"]}]})"));
    EXPECT_EQ(c.at("filtre_web").at("domaines_bloques"), json({"exemple.fr"}));
    EXPECT_EQ(c.at("rapport_applis").at("actif"), true);
    EXPECT_EQ(c.at("tirelire_min"), 20.0);
    EXPECT_EQ(c.at("reaction_voile"), "fermer_session");
    EXPECT_EQ(ligne(commande(base, {"reglages", "Léa"})).at("reglages").at("reaction_voile"),
              "fermer_session");

    for (const std::vector<std::string>& annuler :
         {std::vector<std::string>{"fin-pause", "Léa"},
          {"fin-ouverture", "Léa"},
          {"limite", "Léa", "aucune"},
          {"plage-supprimer", "Léa", "1"},
          {"limite-appli-supprimer", "Léa", "jeux"},
          {"retablir", "Léa", "discord"},
          {"filtre", "Léa", "inactif", "--retirer", "exemple.fr", "--retirer", "wikipedia.org"},
          {"rapports", "Léa", "applis", "off"},
          {"reaction-voile", "Léa", "verrouiller"},
          {"tirelire", "Léa", "-20"}})
        ligne(commande(base, annuler));
    // An emptied filter is still sent, inactive: the agent stops reading the browser.
    json vide = consigneDeLea();
    EXPECT_EQ(vide.at("filtre_web"), json({{"actif", false},
                                           {"domaines_bloques", json::array()},
                                           {"domaines_autorises", json::array()}}));
    vide.erase("filtre_web");
    EXPECT_EQ(vide, initiale);
}

TEST_F(AvecLea, LesParentsListentAccordentEtRefusentSesDemandes) {
    for (int minutes : {15, 30})
        poster(client, "/api/enfant/demandes", {{"type", "temps"}, {"minutes", minutes}}, jeton);
    auto liste = commande(serveur.base(), {"demandes", "Léa"}).sortie;
    ASSERT_EQ(std::count(liste.begin(), liste.end(), '\n'), 2) << liste;
    auto id = json::parse(liste.substr(0, liste.find('\n'))).at("demande").at("id").get<int>();

    ligne(commande(serveur.base(), {"accorder", std::to_string(id)}));
    ligne(commande(serveur.base(), {"refuser", std::to_string(id + 1)}));
    EXPECT_EQ(commande(serveur.base(), {"accorder", std::to_string(id)}).statut, 2);
    EXPECT_EQ(commande(serveur.base(), {"demandes", "Léa"}).sortie, "");
    auto rapport = ligne(commande(serveur.base(), {"rapport", "Léa"}));
    EXPECT_EQ(rapport.at("enfant").at("ajoutes_jour_min"), 15.0);
}
