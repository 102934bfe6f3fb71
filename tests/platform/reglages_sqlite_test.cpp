#include "platform/dossier_temporaire.h"
#include "platform/sqlite/reglages_sqlite.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>

using namespace tavi;
using test::DossierTemporaire;
namespace fs = std::filesystem;

namespace {

std::string contenu(const fs::path& fichier) {
    std::ifstream flux(fichier, std::ios::binary);
    return {std::istreambuf_iterator<char>(flux), {}};
}

void ecrireFichier(const fs::path& fichier, const std::string& octets) {
    std::ofstream(fichier, std::ios::binary) << octets;
}

int lignes(const std::string& texte) {
    return static_cast<int>(std::count(texte.begin(), texte.end(), '\n'));
}

// Runs one statement on the file with a connection of its own, as another process would.
std::string sqlDirect(const fs::path& fichier, const std::string& sql) {
    sqlite3* base = nullptr;
    sqlite3_open(fichier.c_str(), &base);
    std::string resultat;
    sqlite3_exec(
        base, sql.c_str(),
        [](void* sortie, int, char** valeurs, char**) {
            *static_cast<std::string*>(sortie) = valeurs[0] ? valeurs[0] : "";
            return 0;
        },
        &resultat, nullptr);
    sqlite3_close(base);
    return resultat;
}

// The database files set aside, without their -wal and -shm companions.
std::vector<fs::path> misDeCote(const DossierTemporaire& dossier) {
    std::vector<fs::path> trouves;
    for (const auto& entree : fs::directory_iterator(dossier.chemin)) {
        const auto nom = entree.path().filename().string();
        if (nom.find(".illisible-") != std::string::npos && !nom.ends_with("-wal") &&
            !nom.ends_with("-shm"))
            trouves.push_back(entree.path());
    }
    std::sort(trouves.begin(), trouves.end());
    return trouves;
}

} // namespace

TEST(ReglagesSqlite, RendChaqueTypeOctetPourOctetAvantEtApresReouverture) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    const std::string octetsBruts("\0\xff\xfe{\"a\":1}\0\x80", 12);
    const std::vector<std::pair<std::string, Valeur>> valeurs = {
        {"deux53", Valeur{0x1p53}},
        {"negatif", Valeur{-0.5}},
        {"zeroNegatif", Valeur{-0.0}},
        {"enorme", Valeur{1e300}},
        {"infini", Valeur{-INFINITY}},
        {"entier", Valeur{1'795'000'000'123.0}},
        {"texte", Valeur{std::string("Léa \xf0\x9f\x8c\x99")}},
        {"texteNul", Valeur{std::string("a\0b", 3)}},
        {"texteVide", Valeur{std::string()}},
        {"vrai", Valeur{true}},
        {"faux", Valeur{false}},
        {"textes", Valeur{std::vector<std::string>{"historique", "rapport", ""}}},
        {"textesVides", Valeur{std::vector<std::string>{}}},
        {"dictionnaire",
         Valeur{Dictionnaire{{{"org.mozilla.firefox", {{"s", 12.5}, {"nom", "Firefox"}}}}}}},
        {"dictionnaireVide", Valeur{Dictionnaire{}}},
        {"donnees", Valeur{Donnees{octetsBruts}}},
        {"donneesVides", Valeur{Donnees{}}},
    };

    auto verifier = [&](const ReglagesSqlite& reglages) {
        for (const auto& [cle, attendue] : valeurs) {
            auto lue = reglages.lire(cle);
            ASSERT_TRUE(lue) << cle;
            EXPECT_EQ(*lue, attendue) << cle;
        }
        EXPECT_TRUE(std::signbit(*reglages.nombre("zeroNegatif")));
        EXPECT_EQ(reglages.donnees("donnees")->size(), 12u);
    };
    {
        ReglagesSqlite reglages(fichier);
        ASSERT_TRUE(reglages.persistant());
        for (const auto& [cle, valeur] : valeurs)
            reglages.ecrire(cle, valeur);
        verifier(reglages);
    }
    ReglagesSqlite rouvert(fichier);
    verifier(rouvert);
    EXPECT_EQ(rouvert.echecs(), 0);
}

TEST(ReglagesSqlite, UneCleAbsenteOuDUnAutreTypeSeLitAbsente) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    {
        ReglagesSqlite reglages(fichier);
        reglages.ecrire("installation", Valeur{std::string("8F1C")});
        reglages.ecrire("compteur_s", Valeur{12.0});
        reglages.ecrire("consigne", Valeur{Donnees{"{}"}});

        EXPECT_FALSE(reglages.lire("jamais_ecrite"));
        EXPECT_FALSE(reglages.nombre("installation"));
        EXPECT_FALSE(reglages.booleen("compteur_s"));
        EXPECT_FALSE(reglages.texte("consigne"));
        EXPECT_FALSE(reglages.dictionnaire("consigne"));
        EXPECT_EQ(reglages.donnees("consigne"), "{}");
    }
    // Rows edited by hand whose value does not have the shape their type promises.
    sqlDirect(fichier, "INSERT INTO reglages VALUES ('b', 'booleen', 2), ('n', 'nombre', 'x'), "
                       "('l', 'textes', '[1]'), ('d', 'dictionnaire', '{'), "
                       "('o', 'donnees', 'texte'), ('t', 'inconnu', 1)");
    ReglagesSqlite reglages(fichier);
    for (const char* cle : {"b", "n", "l", "d", "o", "t"})
        EXPECT_FALSE(reglages.lire(cle)) << cle;
}

TEST(ReglagesSqlite, EcraseSupprimeEtVoitAussitotLesEcrituresDUnAutreProcessus) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    {
        ReglagesSqlite reglages(fichier);
        reglages.ecrire("prenom", Valeur{std::string("Léa")});
        reglages.ecrire("prenom", Valeur{true});
        reglages.ecrire("ordinateur_id", Valeur{std::string("c-12")});
        reglages.supprimer("ordinateur_id");
        reglages.supprimer("jamais_ecrite");
        EXPECT_EQ(reglages.echecs(), 0);
    }
    ReglagesSqlite reglages(fichier);
    EXPECT_EQ(reglages.booleen("prenom"), true);
    EXPECT_FALSE(reglages.lire("ordinateur_id"));

    // `tavi reglage` writes through its own connection; nothing is cached here.
    ReglagesSqlite autreProcessus(fichier);
    autreProcessus.ecrire("serveur", Valeur{std::string("https://famille.example")});
    EXPECT_EQ(reglages.texte("serveur"), "https://famille.example");
}

TEST(ReglagesSqlite, RefuseUneValeurQuIlNeGarderaitPasFidelementEtGardeLAncienne) {
    ReglagesSqlite reglages(ReglagesSqlite::enMemoire);
    reglages.ecrire("reste_base_s", Valeur{60.0});
    reglages.ecrire("accord_cles", Valeur{std::vector<std::string>{"rapport"}});

    reglages.ecrire("reste_base_s", Valeur{NAN});
    reglages.ecrire("accord_cles", Valeur{std::vector<std::string>{"\xff"}});
    reglages.ecrire("noms_applis", Valeur{Dictionnaire{{{"a", "\xc3"}}}});

    EXPECT_EQ(reglages.nombre("reste_base_s"), 60.0);
    EXPECT_EQ(reglages.textes("accord_cles"), std::vector<std::string>{"rapport"});
    EXPECT_FALSE(reglages.lire("noms_applis"));
    EXPECT_EQ(reglages.echecs(), 3);
}

TEST(ReglagesSqlite, UnGroupeEcritToutOuRienEtRendLExceptionDeSonAppelant) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    {
        ReglagesSqlite reglages(fichier);
        reglages.ecrire("h_ar", Valeur{200.0});
        reglages.grouper([&] {
            reglages.ecrire("h_serveur_a", Valeur{10'100.0});
            reglages.ecrire("h_mono_a", Valeur{4000.0});
            // Reads inside the group see its writes.
            EXPECT_EQ(reglages.nombre("h_serveur_a"), 10'100.0);
        });

        EXPECT_THROW(reglages.grouper([&] {
            reglages.ecrire("h_serveur_a", Valeur{99.0});
            reglages.supprimer("h_ar");
            reglages.ecrire("nouvelle", Valeur{true});
            throw std::runtime_error("l'appelant échoue");
        }),
                     std::runtime_error);

        // The store is usable after the rollback, outside any group.
        reglages.ecrire("apres", Valeur{1.0});
    }
    ReglagesSqlite reglages(fichier);
    EXPECT_EQ(reglages.nombre("h_serveur_a"), 10'100.0);
    EXPECT_EQ(reglages.nombre("h_mono_a"), 4000.0);
    EXPECT_EQ(reglages.nombre("h_ar"), 200.0);
    EXPECT_FALSE(reglages.lire("nouvelle"));
    EXPECT_EQ(reglages.nombre("apres"), 1.0);
}

TEST(ReglagesSqlite, UnGroupeImbriqueRejointLeGroupeExterieur) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    {
        ReglagesSqlite reglages(fichier);
        reglages.grouper([&] {
            reglages.ecrire("exterieur", Valeur{1.0});
            reglages.grouper([&] { reglages.ecrire("interieur", Valeur{2.0}); });
            try {
                reglages.grouper([&] {
                    reglages.ecrire("annule", Valeur{3.0});
                    reglages.ecrire("exterieur", Valeur{4.0});
                    throw std::runtime_error("intérieur");
                });
            } catch (const std::runtime_error&) {
            }
            reglages.ecrire("fin", Valeur{5.0});
        });

        // An exception that leaves the outer group undoes the inner groups too.
        EXPECT_THROW(reglages.grouper([&] {
            reglages.grouper([&] { reglages.ecrire("perdu", Valeur{6.0}); });
            throw std::logic_error("extérieur");
        }),
                     std::logic_error);
    }
    ReglagesSqlite reglages(fichier);
    EXPECT_EQ(reglages.nombre("exterieur"), 1.0);
    EXPECT_EQ(reglages.nombre("interieur"), 2.0);
    EXPECT_FALSE(reglages.lire("annule"));
    EXPECT_EQ(reglages.nombre("fin"), 5.0);
    EXPECT_FALSE(reglages.lire("perdu"));
}

TEST(ReglagesSqlite, UnFichierAbimeEstMisDeCoteIntactEtRemplaceParUnNeuf) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    const std::string dechets(4096, '\x5a');
    ecrireFichier(fichier, dechets);
    ecrireFichier(fichier.string() + "-wal", "journal");

    testing::internal::CaptureStderr();
    {
        ReglagesSqlite reglages(fichier);
        const auto journal = testing::internal::GetCapturedStderr();
        EXPECT_EQ(lignes(journal), 1) << journal;
        EXPECT_NE(journal.find(fichier.string()), std::string::npos) << journal;

        EXPECT_TRUE(reglages.persistant());
        reglages.ecrire("installation", Valeur{std::string("neuve")});
    }
    const auto deCote = misDeCote(dossier);
    ASSERT_EQ(deCote.size(), 1u);
    EXPECT_EQ(contenu(deCote[0]), dechets);
    EXPECT_EQ(contenu(deCote[0].string() + "-wal"), "journal");
    EXPECT_FALSE(fs::exists(fichier.string() + "-wal") &&
                 contenu(fichier.string() + "-wal") == "journal");

    // The fresh store is a real one: its value survives, and opening it again is silent.
    testing::internal::CaptureStderr();
    ReglagesSqlite rouvert(fichier);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(rouvert.texte("installation"), "neuve");
}

TEST(ReglagesSqlite, UneBaseAuxPagesAbimeesEstMiseDeCoteSansEcraserUneAutre) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "reglages.sqlite";
    {
        ReglagesSqlite reglages(fichier);
        for (int i = 0; i < 200; ++i)
            reglages.ecrire("cle" + std::to_string(i), Valeur{std::string(100, 'x')});
    }
    // Page 2 is the table's first page: its b-tree header becomes nonsense.
    std::string octets = contenu(fichier);
    ASSERT_GT(octets.size(), 8192u);
    std::fill(octets.begin() + 4096, octets.begin() + 4096 + 64, '\xee');
    ecrireFichier(fichier, octets);

    testing::internal::CaptureStderr();
    { ReglagesSqlite(fichier).ecrire("a", Valeur{1.0}); }
    // Damaged again, most likely within the same second: the copy set aside first keeps its
    // name and its content.
    ecrireFichier(fichier, octets);
    ReglagesSqlite reglages(fichier);
    EXPECT_EQ(lignes(testing::internal::GetCapturedStderr()), 2);

    const auto deCote = misDeCote(dossier);
    ASSERT_EQ(deCote.size(), 2u);
    EXPECT_EQ(contenu(deCote[0]), octets);
    EXPECT_EQ(contenu(deCote[1]), octets);
    EXPECT_FALSE(reglages.lire("cle0"));
}

TEST(ReglagesSqlite, UnDossierImpossibleACreerLaisseUnMagasinEnMemoire) {
    DossierTemporaire dossier;
    ecrireFichier(dossier / "fichier", "pas un dossier");

    testing::internal::CaptureStderr();
    ReglagesSqlite reglages(dossier / "fichier" / "tavi-home" / "reglages.sqlite");
    EXPECT_EQ(lignes(testing::internal::GetCapturedStderr()), 1);

    EXPECT_FALSE(reglages.persistant());
    reglages.ecrire("installation", Valeur{std::string("ABC")});
    EXPECT_EQ(reglages.texte("installation"), "ABC");
    EXPECT_EQ(contenu(dossier / "fichier"), "pas un dossier");
}

TEST(ReglagesSqlite, OuvreEnWalDesFichiersLisiblesParSonSeulUtilisateur) {
    DossierTemporaire dossier;
    const auto fichier = dossier / "state" / "tavi-home" / "reglages.sqlite";
    ReglagesSqlite reglages(fichier);
    reglages.ecrire("a", Valeur{1.0});

    EXPECT_EQ(sqlDirect(fichier, "PRAGMA journal_mode"), "wal");
    auto mode = [](const fs::path& chemin) {
        struct stat etat {};
        stat(chemin.c_str(), &etat);
        return etat.st_mode & 0777;
    };
    EXPECT_EQ(mode(dossier / "state"), 0700u);
    EXPECT_EQ(mode(dossier / "state" / "tavi-home"), 0700u);
    EXPECT_EQ(mode(fichier), 0600u);
    EXPECT_EQ(mode(fichier.string() + "-wal"), 0600u);
}

TEST(ReglagesSqlite, DeuxFilsQuiEcriventEnMemeTempsNePerdentRien) {
    DossierTemporaire dossier;
    ReglagesSqlite reglages(dossier / "reglages.sqlite");
    constexpr int parFil = 300;
    auto travail = [&](const std::string& prefixe) {
        for (int i = 0; i < parFil; ++i) {
            if (i % 3 == 0) {
                reglages.grouper([&] {
                    reglages.ecrire(prefixe + std::to_string(i), Valeur{double(i)});
                    reglages.ecrire(prefixe + "dernier", Valeur{double(i)});
                });
            } else {
                reglages.ecrire(prefixe + std::to_string(i), Valeur{double(i)});
            }
            reglages.lire("installation");
        }
    };
    std::thread premier(travail, "a");
    std::thread second(travail, "b");
    premier.join();
    second.join();

    for (const char* prefixe : {"a", "b"}) {
        for (int i = 0; i < parFil; ++i)
            ASSERT_EQ(reglages.nombre(prefixe + std::to_string(i)), double(i)) << prefixe << i;
        EXPECT_EQ(reglages.nombre(std::string(prefixe) + "dernier"), 297.0);
    }
    EXPECT_EQ(reglages.echecs(), 0);
}
