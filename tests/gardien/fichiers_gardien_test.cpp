#include "gardien/configuration.h"
#include "gardien/registre.h"
#include "support/dossier_temporaire.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace tavi {
namespace {

using test::DossierTemporaire;
using test::ecrireFichier;

TEST(ConfigurationGardien, SeulRootChoisitUnServeurEnHttpsOuLocal) {
    if (geteuid() != 0) GTEST_SKIP() << "les fichiers de root ne se testent qu'en root";
    DossierTemporaire d;
    const std::string conf = (d / "tavi-home.conf").string();
    EXPECT_FALSE(lireConfiguration(conf)->serveur); // no file: nothing configured

    for (const char* refusee :
         {"http://exemple.fr", "http://127.1", "http://0x7f.0.0.1", "http://127.0.0.1.exemple.fr",
          "ftp://127.0.0.1", "https://moi@exemple.fr", "https://exemple.fr /x", "https://"})
        EXPECT_FALSE(refusAdresseServeur(refusee).empty()) << refusee;
    for (const char* permise : {"https://famille.exemple.fr/base", "http://127.0.0.1:8080",
                                "http://localhost", "http://[::1]:80"})
        EXPECT_EQ(refusAdresseServeur(permise), "") << permise;

    ecrireFichier(conf, "# la famille\nautre = 1\nserveur = https://a.fr\n");
    ASSERT_TRUE(ecrireServeur(conf, "https://b.fr"));
    EXPECT_EQ(test::lireFichier(conf), "# la famille\nautre = 1\nserveur = https://b.fr\n");
    EXPECT_EQ(test::modeDe(conf), 0644u);
    EXPECT_EQ(*lireConfiguration(conf)->serveur, "https://b.fr");

    // Whoever may write the file chooses where the tokens go.
    chmod(conf.c_str(), 0664);
    EXPECT_FALSE(lireConfiguration(conf));
    chmod(conf.c_str(), 0644);
    ASSERT_EQ(chown(conf.c_str(), 1001, 0), 0);
    EXPECT_FALSE(lireConfiguration(conf));
    EXPECT_FALSE(ecrireServeur(conf, "https://c.fr"));
}

TEST(RegistreGardien, UnFichierDouteuxNeToucheQueSonCompte) {
    if (geteuid() != 0) GTEST_SKIP() << "les fichiers de root ne se testent qu'en root";
    DossierTemporaire d;
    Registre registre((d / "etat").string());
    const CompteRelie lea{1001, "lea", "jeton-1", "ordi", "Léa"};
    ASSERT_TRUE(registre.ecrire(lea));
    ASSERT_TRUE(registre.ecrire({1002, "tom", "jeton-2", "ordi", "Tom"}));
    ASSERT_TRUE(registre.ecrire({1003, "zoe", "jeton-3", "ordi", "Zoé"}));
    EXPECT_EQ(test::modeDe(d / "etat"), 0700u);
    EXPECT_EQ(test::modeDe(d / "etat/comptes"), 0700u);
    EXPECT_EQ(test::modeDe(registre.fichier(1001)), 0600u);
    EXPECT_EQ(**registre.lire(1001), lea);
    EXPECT_EQ(registre.lire(1001)->value().public_().dump().find("jeton"), std::string::npos);

    chmod(registre.fichier(1002).c_str(), 0644);
    ecrireFichier(registre.fichier(1003), R"({"uid":1003,"compte":"zoe","jeton":"a\r\nX: y",)"
                                          R"("ordinateur_id":"o","prenom":"Z"})");
    ecrireFichier(d / "etat/comptes/1004.json", R"({"uid":1001,"compte":"x","jeton":"j",)"
                                                R"("ordinateur_id":"o","prenom":"Z"})");
    chmod((d / "etat/comptes/1004.json").c_str(), 0600);
    // A file cut short: its error must not quote the token it held.
    ecrireFichier(registre.fichier(1005), R"({"uid":1005,"jeton":"secret-coupe)");
    chmod(registre.fichier(1005).c_str(), 0600);
    EXPECT_FALSE(registre.lire(1002));
    EXPECT_FALSE(registre.lire(1003));
    const auto liste = registre.lister();
    ASSERT_EQ(liste.comptes.size(), 1u);
    EXPECT_EQ(liste.comptes[0].uid, 1001u);
    ASSERT_EQ(liste.erreurs.size(), 4u);
    for (const auto& erreur : liste.erreurs)
        EXPECT_EQ(erreur.find("secret"), std::string::npos) << erreur;

    EXPECT_TRUE(*registre.oublier(1001));
    EXPECT_FALSE(*registre.oublier(1001));
    EXPECT_FALSE(registre.lire(1001)->has_value());
}

} // namespace
} // namespace tavi
