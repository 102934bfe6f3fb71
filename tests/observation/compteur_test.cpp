#include "fausse_session.h"
#include "observation/compteur.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "support/dossier_temporaire.h"
#include "support/fuseau.h"

#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <memory>

using namespace tavi;
using nlohmann::json;
using test::FausseSession;

namespace {

constexpr std::int64_t jourMs = 86'400'000;
// 2026-11-18 23:59:30 in Paris (UTC+1).
constexpr std::int64_t avantMinuitParis = 1'795'042'770'000;

// Records whether a write happens outside a transaction group.
class ReglagesEspion : public Reglages {
public:
    explicit ReglagesEspion(Reglages& r) : vrais(r) {}
    std::optional<Valeur> lire(const std::string& cle) const override { return vrais.lire(cle); }
    void ecrire(const std::string& cle, const Valeur& v) override {
        horsGroupe += profondeur == 0;
        ++ecritures[cle];
        vrais.ecrire(cle, v);
    }
    void supprimer(const std::string& cle) override { vrais.supprimer(cle); }
    void grouper(const std::function<void()>& groupe) override {
        ++profondeur;
        vrais.grouper(groupe);
        --profondeur;
    }
    int horsGroupe = 0;
    std::map<std::string, int> ecritures;

private:
    Reglages& vrais;
    int profondeur = 0;
};

class CompteurTest : public testing::Test {
protected:
    test::FuseauFixe paris{"Europe/Paris"};
    test::DossierTemporaire dossier;
    std::unique_ptr<ReglagesSqlite> stockage =
        std::make_unique<ReglagesSqlite>(dossier / "reglages.sqlite");
    ReglagesEspion reglages{*stockage};
    FausseSession session;
    std::int64_t maintenant = avantMinuitParis - 12 * 3'600'000;
    std::unique_ptr<Compteur> compteur =
        std::make_unique<Compteur>(reglages, session, [this] { return maintenant; });
};

} // namespace

TEST_F(CompteurTest, UnTicNeCompteQueSousTrenteSecondesHorsPauseEtEnUsage) {
    using S = FausseSession;
    using E = EvenementSession;
    struct Cas {
        const char* raison;
        bool compte;
        double secondes;
        bool enPause = false;
        std::function<void(S&)> regler = [](S&) {};
    };
    const std::vector<Cas> cas = {
        {"saisie_recente", true, 29.9},
        {"saisie_recente", false, 30},
        {"saisie_recente", false, 0},
        {"saisie_recente", false, -1},
        {"saisie_recente", false, std::nan("")},
        {"saisie_recente", false, 1, true}, // under the pause veil
        {"ecrans_en_veille", false, 1, false, [](S& s) { s.annoncer(E::ecransEnVeille); }},
        {"saisie_recente", true, 1, false,
         [](S& s) { s.annoncer(E::ecransEnVeille), s.annoncer(E::ecransEveilles); }},
        {"session_en_arriere", false, 1, false, [](S& s) { s.annoncer(E::sessionEnArriere); }},
        {"ecran_verrouille", false, 1, false, [](S& s) { s.verrouille = true; }},
        {"hors_console", false, 1, false, [](S& s) { s.console = false; }},
        {"inactivite_inconnue", true, 1, false,
         [](S& s) { s.verrouille = s.console = s.retenue = std::nullopt, s.inactivite.reset(); }},
        {"saisie_recente", true, 1, false, [](S& s) { s.inactivite = 299; }},
        {"inactif", false, 1, false, [](S& s) { s.inactivite = 300; }},
        {"affichage_retenu", true, 1, false, [](S& s) { s.inactivite = 300, s.retenue = true; }},
    };
    for (std::size_t i = 0; i < cas.size(); ++i) {
        const Cas& c = cas[i];
        SCOPED_TRACE("cas " + std::to_string(i));
        test::DossierTemporaire d;
        ReglagesSqlite r(d / "r.sqlite");
        FausseSession s;
        Compteur k(r, s, [this] { return maintenant; });
        c.regler(s);
        EXPECT_EQ(k.decision().raison, c.raison);
        k.tic(c.secondes, c.enPause, AppliDeFace{"firefox", "Firefox"});
        EXPECT_EQ(k.secondesDuJour(), c.compte ? c.secondes : 0);
        // A refused tick writes nothing at all.
        EXPECT_EQ(r.lire("compteur_jour").has_value(), c.compte);
        EXPECT_EQ(r.lire("par_appli").has_value(), c.compte);
    }
}

TEST_F(CompteurTest, LeJourChangeAMinuitLocaleEtUnTicEcritEnUneTransaction) {
    maintenant = avantMinuitParis;
    compteur->tic(10, false, AppliDeFace{"firefox", "Firefox"});
    compteur->tic(10, false, std::nullopt);
    EXPECT_EQ(compteur->secondesDuJour(), 20);
    EXPECT_EQ(compteur->secondesAppliDuJour("firefox"), 10);

    maintenant += 40'000;
    EXPECT_EQ(compteur->secondesDuJour(), 0);
    EXPECT_EQ(stockage->nombre("compteur_s"), 20);
    compteur->tic(5, false, AppliDeFace{"firefox", "Firefox"});
    EXPECT_EQ(compteur->secondesDuJour(), 5);
    EXPECT_EQ(stockage->texte("compteur_jour"), "2026-11-19");
    EXPECT_EQ(compteur->parAppli().at("2026-11-18").at("firefox"), 10);
    EXPECT_EQ(compteur->parAppli().at("2026-11-19").at("firefox"), 5);
    EXPECT_EQ(reglages.horsGroupe, 0);
}

TEST_F(CompteurTest, HuitJoursNenGardentQueSeptQuiSurviventAuRedemarrage) {
    for (int jour = 0; jour < 8; ++jour, maintenant += jourMs)
        compteur->tic(1, false, AppliDeFace{"steam", "Steam"});
    compteur.reset();
    stockage = std::make_unique<ReglagesSqlite>(dossier / "reglages.sqlite");
    Compteur apres(*stockage, session, [this] { return maintenant; });
    std::vector<std::string> jours;
    for (const auto& [jour, applis] : apres.parAppli())
        jours.push_back(jour);
    EXPECT_EQ(jours,
              (std::vector<std::string>{"2026-11-19", "2026-11-20", "2026-11-21", "2026-11-22",
                                        "2026-11-23", "2026-11-24", "2026-11-25"}));
}

TEST_F(CompteurTest, LeLotArronditALaDecimaleEtOublieSousTrenteSecondesEtLesMembresAbimes) {
    stockage->ecrire("par_appli", Valeur{Dictionnaire{json::parse(R"({
        "2026-11-18": {"a": 29, "b": 30, "c": 87, "d": 86, "x": "beaucoup", "y": -5},
        "2026-11-17": {"a": 10}, "pas-un-jour": {"a": 600}, "2026-11-16": 5, "2026-11-15": []
    })")}});
    stockage->ecrire("noms_applis",
                     Valeur{Dictionnaire{json{{"a", "A"}, {"b", "Bé"}, {"c", 3}, {"z", "Z"}}}});
    EXPECT_EQ(compteur->lotUsage(), json::parse(R"({
        "jours": {"2026-11-18": {"b": 0.5, "c": 1.5, "d": 1.4}}, "noms": {"b": "Bé"}})"));

    // A new name replaces the old one; the same name is not written again.
    compteur->tic(1, false, AppliDeFace{"b", "Bé 2"});
    EXPECT_EQ(stockage->dictionnaire("noms_applis")->at("b"), "Bé 2");
    compteur->tic(1, false, AppliDeFace{"b", "Bé 2"});
    EXPECT_EQ(reglages.ecritures["noms_applis"], 1);

    compteur->oublierApplis();
    EXPECT_FALSE(stockage->lire("par_appli"));
    EXPECT_FALSE(stockage->lire("noms_applis"));
    EXPECT_EQ(compteur->secondesDuJour(), 2);
    EXPECT_EQ(compteur->lotUsage(), json::parse(R"({"jours": {}, "noms": {}})"));
}
