#include "platform/sqlite/reglages_sqlite.h"
#include "support/dossier_temporaire.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdexcept>

using namespace tavi;
using namespace tavi::test;
namespace fs = std::filesystem;

namespace {

long lignes(const std::string& texte) {
    return std::count(texte.begin(), texte.end(), '\n');
}

// One statement through a connection of its own, as another process would run it.
std::string sqlDirect(const fs::path& fichier, const std::string& sql) {
    sqlite3* base = nullptr;
    sqlite3_open(fichier.c_str(), &base);
    std::string resultat;
    auto garder = [](void* sortie, int, char** valeurs, char**) {
        *static_cast<std::string*>(sortie) = valeurs[0] ? valeurs[0] : "";
        return 0;
    };
    sqlite3_exec(base, sql.c_str(), garder, &resultat, nullptr);
    sqlite3_close(base);
    return resultat;
}

// The database files set aside in `dossier`, without their -wal and -shm.
std::vector<fs::path> misDeCote(const DossierTemporaire& dossier) {
    std::vector<fs::path> trouves;
    for (const auto& entree : fs::directory_iterator(dossier.chemin())) {
        const auto nom = entree.path().filename().string();
        if (nom.find(".illisible-") != std::string::npos && !nom.ends_with("-wal") &&
            !nom.ends_with("-shm"))
            trouves.push_back(entree.path());
    }
    std::sort(trouves.begin(), trouves.end());
    return trouves;
}

} // namespace

TEST(ReglagesSqlite, RendChaqueTypeOctetPourOctetApresReouvertureEtRienDAutre) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "state" / "tavi-home" / "reglages.sqlite";
    const std::vector<std::pair<std::string, Valeur>> valeurs = {
        {"deux53", 0x1p53},
        {"zeroNegatif", -0.0},
        {"infini", -INFINITY},
        {"texte", std::string("Léa") + '\0' + "\xf0\x9f\x8c\x99"},
        {"vrai", true},
        {"faux", false},
        {"textes", std::vector<std::string>{"historique", ""}},
        {"dictionnaire", Dictionnaire{{{"org.mozilla.firefox", {{"s", 12.5}, {"nom", "Fx"}}}}}},
        {"donnees", Donnees{std::string("\0\xff\xfe{\"a\":1}\0\x80", 12)}},
        {"donneesVides", Donnees{}},
    };
    {
        ReglagesSqlite reglages(fichier);
        ASSERT_TRUE(reglages.persistant());
        for (const auto& [cle, valeur] : valeurs)
            reglages.ecrire(cle, valeur);
        // Overwritten with another type, deleted, and deleting what never was.
        reglages.ecrire("prenom", std::string("Léa"));
        reglages.ecrire("prenom", true);
        reglages.ecrire("ordinateur_id", std::string("c-12"));
        reglages.supprimer("ordinateur_id");
        reglages.supprimer("jamais_ecrite");
        // Files readable by their user only, in write-ahead mode.
        EXPECT_EQ(sqlDirect(fichier, "PRAGMA journal_mode"), "wal");
        for (const fs::path& prive : {dossier / "state", fichier.parent_path()})
            EXPECT_EQ(modeDe(prive), 0700u) << prive;
        for (const fs::path& prive : {fichier, fs::path(fichier.string() + "-wal")})
            EXPECT_EQ(modeDe(prive), 0600u) << prive;
    }
    // Rows edited by hand whose value does not have the shape their type promises.
    sqlDirect(fichier, "INSERT INTO reglages VALUES ('b', 'booleen', 2), ('n', 'nombre', 'x'), "
                       "('l', 'textes', '[1]'), ('d', 'dictionnaire', '{'), "
                       "('o', 'donnees', 'texte'), ('t', 'inconnu', 1)");
    ReglagesSqlite rouvert(fichier);
    for (const auto& [cle, attendue] : valeurs)
        EXPECT_EQ(rouvert.lire(cle), attendue) << cle;
    EXPECT_TRUE(std::signbit(*rouvert.nombre("zeroNegatif")));
    EXPECT_EQ(rouvert.booleen("prenom"), true);
    for (const char* absente : {"ordinateur_id", "jamais_ecrite", "b", "n", "l", "d", "o", "t"})
        EXPECT_FALSE(rouvert.lire(absente)) << absente;
    // Another type reads absent.
    EXPECT_FALSE(rouvert.nombre("texte"));
    EXPECT_FALSE(rouvert.texte("donnees"));
    EXPECT_EQ(rouvert.echecs(), 0);

    // `tavi reglage` writes through a connection of its own: seen once what was read is stale.
    ReglagesSqlite frais(fichier, std::chrono::milliseconds(0));
    EXPECT_FALSE(frais.lire("serveur"));
    ReglagesSqlite(fichier).ecrire("serveur", std::string("https://famille.example"));
    EXPECT_EQ(frais.texte("serveur"), "https://famille.example");
}

TEST(ReglagesSqlite, UnGroupeEcritToutOuRienEtRendLExceptionDeSonAppelant) {
    auto verifier = [](const ReglagesSqlite& reglages) {
        EXPECT_EQ(reglages.nombre("exterieur"), 1.0);
        EXPECT_EQ(reglages.nombre("h_ar"), 200.0);
        EXPECT_FALSE(reglages.lire("perdu"));
        EXPECT_EQ(reglages.nombre("apres"), 1.0);
    };
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    {
        ReglagesSqlite reglages(fichier);
        reglages.ecrire("h_ar", 200.0);
        reglages.grouper([&] {
            reglages.ecrire("exterieur", 1.0);
            // An inner group that throws undoes its own writes only.
            try {
                reglages.grouper([&] {
                    reglages.ecrire("exterieur", 4.0);
                    throw std::runtime_error("intérieur");
                });
            } catch (const std::runtime_error&) {
            }
        });
        auto echoue = [&] {
            reglages.grouper([&] {
                reglages.supprimer("h_ar");
                reglages.grouper([&] { reglages.ecrire("perdu", 6.0); });
                throw std::logic_error("l'appelant échoue");
            });
        };
        EXPECT_THROW(echoue(), std::logic_error);
        reglages.ecrire("apres", 1.0);
        verifier(reglages); // what it keeps in memory must not hold an undone write
    }
    ReglagesSqlite reglages(fichier);
    verifier(reglages);
}

TEST(ReglagesSqlite, UnFichierAbimeEstMisDeCoteIntactAvecSonJournalEtRemplaceParUnNeuf) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    const std::string dechets(4096, '\x5a');
    ecrireFichier(fichier, dechets);
    ecrireFichier(fichier.string() + "-wal", "journal");

    testing::internal::CaptureStderr();
    ReglagesSqlite(fichier).ecrire("installation", std::string("neuve"));
    const auto journal = testing::internal::GetCapturedStderr();
    EXPECT_EQ(lignes(journal), 1) << journal;
    EXPECT_NE(journal.find(fichier.string()), std::string::npos) << journal;
    auto deCote = misDeCote(dossier);
    ASSERT_EQ(deCote.size(), 1u);
    EXPECT_EQ(lireFichier(deCote[0]), dechets);
    EXPECT_EQ(lireFichier(deCote[0].string() + "-wal"), "journal");

    // The fresh store is a real one, opened again in silence.
    testing::internal::CaptureStderr();
    {
        ReglagesSqlite neuf(fichier);
        EXPECT_EQ(neuf.texte("installation"), "neuve");
        for (int i = 0; i < 100; ++i)
            neuf.ecrire("cle" + std::to_string(i), std::string(99, 'x'));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // A sound header over damaged pages is caught too, and the copy set aside first (most
    // likely within the same second) keeps its name.
    std::string octets = lireFichier(fichier);
    ASSERT_GT(octets.size(), 8192u);
    std::fill(octets.begin() + 4096, octets.begin() + 4096 + 64, '\xee');
    ecrireFichier(fichier, octets);
    testing::internal::CaptureStderr();
    ReglagesSqlite reglages(fichier);
    EXPECT_EQ(lignes(testing::internal::GetCapturedStderr()), 1);
    EXPECT_FALSE(reglages.lire("cle0"));
    deCote = misDeCote(dossier);
    ASSERT_EQ(deCote.size(), 2u);
    EXPECT_EQ(lireFichier(deCote[0]), dechets);
    EXPECT_EQ(lireFichier(deCote[1]), octets);
}

TEST(ReglagesSqlite, UnDossierImpossibleLaisseUnMagasinEnMemoireQuiRefuseCeQuIlNeGarderaitPas) {
    DossierTemporaire dossier;
    ecrireFichier(dossier / "fichier", "pas un dossier");

    testing::internal::CaptureStderr();
    ReglagesSqlite reglages(dossier / "fichier" / "tavi-home" / "reglages.sqlite");
    EXPECT_EQ(lignes(testing::internal::GetCapturedStderr()), 1);

    EXPECT_FALSE(reglages.persistant());
    reglages.ecrire("installation", std::string("ABC"));
    EXPECT_EQ(reglages.texte("installation"), "ABC");
    EXPECT_EQ(lireFichier(dossier / "fichier"), "pas un dossier");

    // A value it would not give back faithfully is refused, and the old one kept.
    reglages.ecrire("reste_base_s", 60.0);
    reglages.ecrire("reste_base_s", NAN);
    reglages.ecrire("accord_cles", std::vector<std::string>{"\xff"});
    reglages.ecrire("noms_applis", Dictionnaire{{{"a", "\xc3"}}});
    EXPECT_EQ(reglages.nombre("reste_base_s"), 60.0);
    EXPECT_FALSE(reglages.lire("accord_cles") || reglages.lire("noms_applis"));
    EXPECT_EQ(reglages.echecs(), 3);
}
