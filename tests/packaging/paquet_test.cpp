#include "commun/texte.h"
#include "platform/linux/demarrage_linux.h"
#include "platform/linux/demarrage_systemd.h"
#include "platform/linux/demarrage_xdg.h"
#include "support/dossier_temporaire.h"
#include "support/variable.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

using test::lireFichier;

// The unit and the autostart entry that the package installs are, to the byte, what the login
// agent writes for the installed executable: it then counts the system's entry as its own and
// writes nothing more in the child's folders.
TEST(EntreesDuPaquet, SontCellesQueLAgentEcritPourLExecutableInstalle) {
    const std::filesystem::path executable = TAVI_HOME_INSTALLE;
    EXPECT_EQ(lireFichier(TAVI_UNITE_CONSTRUITE), DemarrageSystemd::texteUnite(executable));
    const std::string entree = lireFichier(TAVI_ENTREE_CONSTRUITE);
    EXPECT_EQ(entree, DemarrageXdg::texteEntree(executable));
    EXPECT_EQ(DemarrageXdg::pourquoiPasLaNotre(entree, executable), std::nullopt);

    test::DossierTemporaire dossier;
    test::ecrireFichier(dossier / "xdg/autostart/com.tavi.home.desktop", entree);
    OptionsDemarrage options;
    options.executable = executable;
    options.configMaison = dossier / "maison";
    options.configSysteme = {dossier / "vide", dossier / "xdg"};
    options.mode = ModeDemarrage::xdg;
    DemarrageLinux demarrage(options);
    EXPECT_TRUE(demarrage.actif());
    EXPECT_EQ(demarrage.enregistrer(), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(dossier / "maison/autostart"));
}

// The build's own catalogues, read the way the installed programs read theirs: the user's
// language picks the English texts, placeholders included; a text the catalogue does not hold
// and a language without a catalogue stay French.
TEST(CatalogueAnglais, DonneLesTextesDeLEnfantDansLaLangueDeLUtilisateur) {
    test::Variable langue("LANGUAGE", "en");
    initialiserTextes(TAVI_CATALOGUES_CONSTRUITS);
    EXPECT_EQ(texte("Demander du temps"), "Ask for time");
    EXPECT_EQ(texteAvec("Il te reste %@ aujourd'hui", "45 min"), "45 min left today");
    EXPECT_EQ(texteAvec("Utiliser %d min", "10"), "Use 10 min");
    EXPECT_EQ(texte("Ton ordinateur fait la sieste"), "Your computer is taking a nap");
    EXPECT_EQ(texte("Aucun texte de ce nom"), "Aucun texte de ce nom");

    // Set anew, as a program starting in that language would: glibc keeps what it looked up.
    test::Variable allemand("LANGUAGE", "de");
    initialiserTextes(TAVI_CATALOGUES_CONSTRUITS);
    EXPECT_EQ(texte("Demander du temps"), "Demander du temps");
}

} // namespace
} // namespace tavi
