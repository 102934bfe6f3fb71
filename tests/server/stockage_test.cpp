#include "platform/memoire/coffre_memoire.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/stockage.h"
#include "support/dossier_temporaire.h"

#include <gtest/gtest.h>
#include <regex>

namespace tavi {
namespace {

TEST(Stockage, LIdentifiantDInstallationEstCreeUneFoisEtGardePourToujours) {
    test::DossierTemporaire dossier;
    std::string premier;
    {
        ReglagesSqlite reglages(dossier / "reglages.sqlite");
        premier = Stockage::installation(reglages);
        EXPECT_EQ(Stockage::installation(reglages), premier);
        EXPECT_TRUE(std::regex_match(
            premier,
            std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
            << premier;
        // Unpairing forgets the child and the token, never the installation.
        CoffreMemoire coffre;
        reglages.ecrire("consigne", Donnees{"{}"});
        Trousseau::ecrire(coffre, "jeton-secret");
        coffre.ecrire("autre.service", "jeton", "garde");
        Stockage::oublier(reglages);
        Trousseau::effacer(coffre);
        EXPECT_FALSE(reglages.lire("consigne"));
        EXPECT_EQ(Trousseau::lire(coffre), std::nullopt);
        EXPECT_EQ(coffre.lire("autre.service", "jeton"), "garde");
    }
    ReglagesSqlite rouvert(dossier / "reglages.sqlite");
    EXPECT_EQ(Stockage::installation(rouvert), premier) << "kept across restarts and unpairing";
    ReglagesSqlite autre(dossier / "autre.sqlite");
    EXPECT_NE(Stockage::installation(autre), premier);
}

TEST(Stockage, LeTrousseauNeGardeNiNeRendUnJetonHorsDuFormatPorteur) {
    CoffreMemoire coffre;
    Trousseau::ecrire(coffre, "abc\r\nX-Injecte: 1");
    EXPECT_EQ(coffre.lire(Trousseau::service, Trousseau::compte), std::nullopt);
    coffre.ecrire(Trousseau::service, Trousseau::compte, std::string(1'000'000, 'j'));
    EXPECT_EQ(Trousseau::lire(coffre), std::nullopt) << "the fallback file is the child's to edit";
    Trousseau::ecrire(coffre, "jeton-sur");
    EXPECT_EQ(Trousseau::lire(coffre), "jeton-sur");
}

TEST(Stockage, LAdresseDuServeurRetombeSurLaValeurParDefautQuandElleEstInvalide) {
    ReglagesSqlite reglages(ReglagesSqlite::enMemoire);
    const std::string defaut(Stockage::adresseParDefaut);
    EXPECT_EQ(Stockage::serveur(reglages), defaut);
    for (const std::string mauvaise : {"pas une adresse", "file:///etc/passwd", "https://"}) {
        reglages.ecrire("serveur", mauvaise);
        EXPECT_EQ(Stockage::serveur(reglages), defaut) << mauvaise;
    }
    reglages.ecrire("serveur", 42.0);
    EXPECT_EQ(Stockage::serveur(reglages), defaut) << "another type reads as absent";
    reglages.ecrire("serveur", std::string("https://famille.example/tavi/"));
    EXPECT_EQ(Stockage::serveur(reglages), "https://famille.example/tavi/");
}

TEST(Stockage, LaConsigneRangeeSeLitTelleQueRecueEtIllisibleVautAbsente) {
    ReglagesSqlite reglages(ReglagesSqlite::enMemoire);
    EXPECT_EQ(Stockage::consigneRangee(reglages), std::nullopt);
    reglages.ecrire("consigne", Donnees{R"({"prenom": "Léa", "tirelire_min": 5})"});
    ASSERT_TRUE(Stockage::consigneRangee(reglages));
    EXPECT_EQ(Stockage::consigneRangee(reglages)->prenom, "Léa");
    reglages.ecrire("consigne", Donnees{R"({"prenom": 5})"});
    EXPECT_EQ(Stockage::consigneRangee(reglages), std::nullopt);
    reglages.ecrire("consigne", std::string(R"({"prenom": "Léa"})"));
    EXPECT_EQ(Stockage::consigneRangee(reglages), std::nullopt) << "text is not data";
}

} // namespace
} // namespace tavi
