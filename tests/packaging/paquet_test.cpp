#include "commun/texte.h"
#include "platform/linux/demarrage_systemd.h"
#include "support/dossier_temporaire.h"
#include "support/variable.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

using test::lireFichier;

// The user unit that the package installs, left disabled, is to the byte what the login agent
// writes for the installed executable. No system-wide login entry is installed: the guardian
// starts the agent.
TEST(EntreesDuPaquet, LUniteEstCelleQueLAgentEcritPourLExecutableInstalle) {
    EXPECT_EQ(lireFichier(TAVI_UNITE_CONSTRUITE),
              DemarrageSystemd::texteUnite(std::filesystem::path(TAVI_HOME_INSTALLE)));
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
