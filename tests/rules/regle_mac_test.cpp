#include "rules/regle_mac.h"
#include "support/impression.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

RegleMac avecCause(std::string cause, std::string titre = "") {
    RegleMac r;
    r.cause = std::move(cause);
    r.titre = std::move(titre);
    return r;
}

TEST(TitreAffiche, UneCauseConnueAnnonceSonTexteEtLesAutresMontrentLeurTitreOuPause) {
    EXPECT_EQ(avecCause("limite", "ignoré").titreAffiche(), "Limite du jour");
    // A title holding a placeholder is shown as it is, never read as a format.
    EXPECT_EQ(avecCause("limite_appli", "100%@ %d").titreAffiche(), "Limite : 100%@ %d");
    EXPECT_EQ(avecCause("moment").titreAffiche(), "Pause");
    EXPECT_EQ(avecCause("moment", "Devoirs").titreAffiche(), "Devoirs");
    // Causes are exact texts.
    EXPECT_EQ(avecCause("Limite", "Devoirs").titreAffiche(), "Devoirs");
}

} // namespace
} // namespace tavi
