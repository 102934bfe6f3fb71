#include "platform/linux/coffre_fichier.h"
#include "platform/linux/coffre_secret.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <libsecret/secret.h>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace tavi;
using test::DossierTemporaire;
using test::modeDe;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const std::string service = "com.tavi.home.mac";
const std::string compte = "jeton";

std::size_t nombre(const fs::path& dossier) {
    return std::distance(fs::directory_iterator(dossier), fs::directory_iterator());
}

// Every file under `racine` whose bytes contain `secret`.
std::vector<fs::path> fichiersContenant(const fs::path& racine, const std::string& secret) {
    std::vector<fs::path> trouves;
    for (const auto& entree : fs::recursive_directory_iterator(racine)) {
        if (!entree.is_regular_file()) continue;
        if (test::lireFichier(entree.path()).find(secret) != std::string::npos)
            trouves.push_back(entree.path());
    }
    return trouves;
}

// The store in a process of its own that finds no session bus: what it printed and logged.
test::Sortie sansBus(const DossierTemporaire& dossier, const std::string& operations) {
    return test::executer(
        {TAVI_COFFRE_ESSAI}, operations,
        {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (dossier / "pas-de-bus").string()},
         {"XDG_STATE_HOME", (dossier / "etat").string()}});
}

fs::path fichierSansBus(const DossierTemporaire& dossier) {
    return dossier / "etat" / "tavi-home" / "secrets" / "com.tavi.home.mac@jeton";
}

// The test's own view of the keyring, through libsecret rather than the store.
struct Trousseau {
    SecretService* secrets = nullptr;
    std::vector<SecretItem*> gardes;

    ~Trousseau() {
        std::for_each(gardes.begin(), gardes.end(), g_object_unref);
        if (secrets) g_object_unref(secrets);
    }

    // Why the keyring tests cannot run here; absent when they can.
    std::optional<std::string> indisponible() {
        if (const char* absent = std::getenv("TAVI_TROUSSEAU_ABSENT")) return absent;
        if (!std::getenv("TAVI_TROUSSEAU_PRIVE"))
            return "not run through tests/platform/avec_trousseau.sh, which starts a private bus "
                   "and keyring: the user's own keyring is never used";
        // The daemon may still be claiming its name on the bus.
        for (int essai = 0; essai < 50 && !secrets; ++essai, std::this_thread::sleep_for(100ms))
            secrets = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, nullptr);
        if (!secrets) return "no Secret Service answers on the test bus";
        return std::nullopt;
    }

    // The items with the store's two attributes, whoever made them, locked or not.
    std::vector<SecretItem*> elements(const std::string& compteCherche) {
        GHashTable* attributs = g_hash_table_new(g_str_hash, g_str_equal);
        g_hash_table_insert(attributs, (gpointer) "service", (gpointer)service.c_str());
        g_hash_table_insert(attributs, (gpointer) "account", (gpointer)compteCherche.c_str());
        GList* trouves = secret_service_search_sync(secrets, nullptr, attributs, SECRET_SEARCH_ALL,
                                                    nullptr, nullptr);
        g_hash_table_unref(attributs);
        std::vector<SecretItem*> retenus;
        for (GList* l = trouves; l; l = l->next)
            retenus.push_back(SECRET_ITEM(l->data));
        g_list_free(trouves);
        gardes.insert(gardes.end(), retenus.begin(), retenus.end());
        return retenus;
    }
};

// Password dialogs this process asks the Secret Service to show, on the session bus connection
// libsecret shares with the store.
std::atomic<int> invites = 0;
GDBusMessage* compterInvite(GDBusConnection*, GDBusMessage* message, gboolean entrant, gpointer) {
    const char* membre = g_dbus_message_get_member(message);
    invites += !entrant && membre && std::string_view(membre) == "Prompt";
    return message;
}

} // namespace

TEST(CoffreFichier, ChaqueSecretASonFichierAuSeulUtilisateurSansCollisionEvasionNiLien) {
    DossierTemporaire dossier;
    const fs::path secrets = dossier / "etat" / "secrets";
    CoffreFichier coffre(secrets);
    EXPECT_EQ(coffre.lire(service, compte), std::nullopt);

    const mode_t umaskAvant = umask(0);
    coffre.ecrire(service, compte, "premier");
    coffre.ecrire(service, compte, "second");
    umask(umaskAvant);
    EXPECT_EQ(modeDe(secrets), 0700u);
    EXPECT_EQ(modeDe(secrets / "com.tavi.home.mac@jeton"), 0600u);
    EXPECT_EQ(coffre.lire(service, compte), "second");

    // Names that could meet in one file name, or lead out of the folder.
    coffre.ecrire("a@b", "c", "un");
    coffre.ecrire("a", "b@c", "deux");
    coffre.ecrire("../..", "../evasion", "trois");
    EXPECT_EQ(coffre.lire("a@b", "c"), "un");
    EXPECT_EQ(coffre.lire("a", "b@c"), "deux");
    EXPECT_EQ(coffre.lire("../..", "../evasion"), "trois");
    EXPECT_EQ(nombre(dossier / "etat"), 1u) << "a name led out of the folder";
    EXPECT_EQ(nombre(secrets), 4u) << "a temporary file was left behind";

    // What a crash between writing and renaming leaves holds a secret too.
    test::ecrireFichier(secrets / "~com.tavi.home.mac@jeton.a1b2c3", "interrompu");
    coffre.supprimer(service, compte);
    EXPECT_EQ(coffre.lire(service, compte), std::nullopt);
    EXPECT_EQ(fichiersContenant(secrets, "interrompu"), std::vector<fs::path>{});
    EXPECT_TRUE(coffre.retirer(service, compte)) << "deleting what is gone is no failure";
    const std::string tropLong(200, 'x');
    EXPECT_FALSE(coffre.deposer(tropLong, tropLong, "refused"));

    // The file is the child's to edit: bytes that are not text must not reach a header.
    for (const std::string& pasDuTexte :
         {std::string("\xff\xfe"), std::string("jeton\0nul", 9), std::string("\xc0\xaf")}) {
        test::ecrireFichier(secrets / "com.tavi.home.mac@jeton", pasDuTexte);
        EXPECT_EQ(coffre.lire(service, compte), std::nullopt);
    }

    // Opened to others (by an older version, say): closed again on the next use.
    fs::permissions(secrets, fs::perms(0755));
    ASSERT_TRUE(coffre.deposer(service, compte, "secret"));
    EXPECT_EQ(modeDe(secrets), 0700u);
    fs::permissions(secrets / "com.tavi.home.mac@jeton", fs::perms(0644));
    EXPECT_EQ(coffre.lire(service, compte), "secret");
    EXPECT_EQ(modeDe(secrets / "com.tavi.home.mac@jeton"), 0600u);

    // A link in place of the folder could lead the secret anywhere.
    fs::create_directory_symlink(secrets, dossier / "lien");
    EXPECT_FALSE(CoffreFichier(dossier / "lien").deposer(service, compte, "ailleurs"));
    EXPECT_EQ(CoffreFichier(dossier / "lien").lire(service, compte), std::nullopt);
}

TEST(CoffreSansService, LeSecretVaDansUnFichierAuSeulUtilisateurEtLeJournalLeDitUneFois) {
    DossierTemporaire dossier;
    const auto premier = sansBus(dossier, "lire com.tavi.home.mac jeton\n"
                                          "ecrire com.tavi.home.mac jeton jeton-ancien-5e1d\n"
                                          "ecrire com.tavi.home.mac jeton jeton-neuf-9c2a\n"
                                          "lire com.tavi.home.mac jeton\n");
    ASSERT_EQ(premier.statut, 0) << premier.err;
    EXPECT_EQ(premier.out, "absent\nok\nok\n= jeton-neuf-9c2a\n");
    const fs::path fichier = fichierSansBus(dossier);
    EXPECT_EQ(premier.err, "no Secret Service answers: the token is kept in " + fichier.string() +
                               ", readable by this user only\n");
    for (auto dossierCree = fichier.parent_path(); dossierCree != dossier.chemin();
         dossierCree = dossierCree.parent_path())
        EXPECT_EQ(modeDe(dossierCree), 0700u) << dossierCree;
    EXPECT_EQ(modeDe(fichier), 0600u);
    EXPECT_EQ(fichiersContenant(dossier.chemin(), "jeton-ancien-5e1d"), std::vector<fs::path>{});

    // Another process reads it and says so once too; a delete leaves nothing.
    const auto second = sansBus(dossier, "lire com.tavi.home.mac jeton\n"
                                         "supprimer com.tavi.home.mac jeton\n"
                                         "lire com.tavi.home.mac jeton\n");
    EXPECT_EQ(second.out, "= jeton-neuf-9c2a\nok\nabsent\n");
    EXPECT_EQ(second.err, premier.err);
    EXPECT_EQ(fichiersContenant(dossier.chemin(), "jeton-neuf-9c2a"), std::vector<fs::path>{});
}

TEST(CoffreTrousseau, UnSeulElementMisAJourEnPlaceEtCeQuiEtaitGardeSansServiceYEntre) {
    Trousseau trousseau;
    if (auto raison = trousseau.indisponible()) GTEST_SKIP() << *raison;
    DossierTemporaire dossier;
    const fs::path fichier = fichierSansBus(dossier);
    CoffreSecret coffre(fichier.parent_path());
    testing::internal::CaptureStderr();

    EXPECT_EQ(coffre.lire(service, compte), std::nullopt);
    coffre.ecrire(service, compte, "jeton-un-41f0");
    coffre.ecrire(service, compte, "jeton-deux-8d3e");
    coffre.ecrire(service, "autre", "du-compte-autre");
    EXPECT_EQ(coffre.lire(service, compte), "jeton-deux-8d3e");
    EXPECT_EQ(trousseau.elements(compte).size(), 1u)
        << "the update added an item instead of replacing it";

    // Another program may store any bytes under the same attributes.
    SecretValue* pasDuTexte = secret_value_new("\xff\xfe", 2, "application/octet-stream");
    ASSERT_TRUE(
        secret_item_set_secret_sync(trousseau.elements(compte)[0], pasDuTexte, nullptr, nullptr));
    secret_value_unref(pasDuTexte);
    EXPECT_EQ(coffre.lire(service, compte), std::nullopt);

    coffre.supprimer(service, compte);
    EXPECT_TRUE(trousseau.elements(compte).empty());
    EXPECT_EQ(coffre.lire(service, "autre"), "du-compte-autre");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(fs::exists(fichier.parent_path())) << "a file was written beside the keyring";

    // A secret a process without the service kept in a file moves to the keyring when read; a
    // write replaces both, a delete removes both.
    auto ecrireSansBus = [&](const std::string& secret) {
        ASSERT_EQ(sansBus(dossier, "ecrire com.tavi.home.mac jeton " + secret + "\n").statut, 0);
    };
    ecrireSansBus("garde-en-fichier-1");
    EXPECT_EQ(coffre.lire(service, compte), "garde-en-fichier-1");
    EXPECT_FALSE(fs::exists(fichier));
    EXPECT_EQ(trousseau.elements(compte).size(), 1u) << "not moved to the keyring";
    ecrireSansBus("garde-en-fichier-2");
    coffre.ecrire(service, compte, "ecrit-au-trousseau-3");
    EXPECT_FALSE(fs::exists(fichier));
    EXPECT_EQ(coffre.lire(service, compte), "ecrit-au-trousseau-3");
    ecrireSansBus("garde-en-fichier-4");
    coffre.supprimer(service, compte);
    EXPECT_FALSE(fs::exists(fichier));
    EXPECT_TRUE(trousseau.elements(compte).empty());
}

TEST(CoffreVerrouille, UnTrousseauVerrouilleRepondAbsentSansDemanderDeMotDePasse) {
    Trousseau trousseau;
    if (auto raison = trousseau.indisponible()) GTEST_SKIP() << *raison;
    DossierTemporaire dossier;
    CoffreSecret coffre(dossier / "secrets");
    coffre.ecrire(service, compte, "avant-verrou");
    SecretCollection* collection = secret_collection_for_alias_sync(
        trousseau.secrets, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, nullptr, nullptr);
    ASSERT_NE(collection, nullptr);
    GList* objets = g_list_append(nullptr, collection);
    ASSERT_EQ(secret_service_lock_sync(trousseau.secrets, objets, nullptr, nullptr, nullptr), 1);
    g_list_free_full(objets, g_object_unref);

    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    const guint filtre = g_dbus_connection_add_filter(bus, compterInvite, nullptr, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(coffre.lire(service, compte), std::nullopt);
    coffre.ecrire(service, compte, "pendant-verrou");
    coffre.supprimer(service, compte);
    // No one can answer a dialog here, so asking fails fast; on a desktop it would wait.
    g_dbus_connection_remove_filter(bus, filtre);
    g_object_unref(bus);
    EXPECT_EQ(invites, 0) << "the store asked for a password dialog";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const auto restants = trousseau.elements(compte);
    ASSERT_EQ(restants.size(), 1u) << "the item was deleted";
    EXPECT_TRUE(secret_item_get_locked(restants[0])) << "the item was unlocked";
    EXPECT_FALSE(fs::exists(dossier / "secrets")) << "the refused write went to a file";
}
