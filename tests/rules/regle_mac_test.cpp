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

TEST(TitreAffiche, ChaqueCauseConnueAUnTexteEtLesAutresMontrentLeurTitreOuPause) {
    EXPECT_EQ(avecCause("limite", "ignoré").titreAffiche(), "Limite du jour");
    EXPECT_EQ(avecCause("pause_famille").titreAffiche(), "Pause famille");
    EXPECT_EQ(avecCause("gage").titreAffiche(), "Gage pas fait");
    EXPECT_EQ(avecCause("coupee").titreAffiche(), "Coupée par tes parents");
    EXPECT_EQ(avecCause("site").titreAffiche(), "Site bloqué");
    EXPECT_EQ(avecCause("navigateur").titreAffiche(), "Navigateur non pris en charge");
    EXPECT_EQ(avecCause("automatisation").titreAffiche(), "Autorisation nécessaire");
    EXPECT_EQ(avecCause("limite_appli", "Jeux").titreAffiche(), "Limite : Jeux");
    // A title holding a placeholder is shown as it is, never read as a format.
    EXPECT_EQ(avecCause("limite_appli", "100%@ %d").titreAffiche(), "Limite : 100%@ %d");
    EXPECT_EQ(avecCause("moment").titreAffiche(), "Pause");
    EXPECT_EQ(avecCause("moment", "Devoirs").titreAffiche(), "Devoirs");
    // Causes are exact texts.
    EXPECT_EQ(avecCause("Limite", "Devoirs").titreAffiche(), "Devoirs");
}

TEST(Fusion, LesBlocagesSAdditionnentEtLaFinLaPlusTardiveGagne) {
    RegleMac a{false, {"a", "b"}, {"jeux"}, "moment", "A", 0};
    RegleMac b{false, {"b", "c"}, {"videos"}, "gage", "B", 5000};
    RegleMac ab = a.fusion(b);
    EXPECT_EQ(ab, (RegleMac{false, {"a", "b", "c"}, {"jeux", "videos"}, "moment", "A", 5000}));
    b.fin = 7000;
    a.fin = 5000;
    EXPECT_EQ(b.fusion(a).fin, 7000);
    EXPECT_EQ(a.fusion(b).fin, 7000);
}

TEST(Fusion, LeMessageVientDeCeluiQuiRendLeBlocageTotal) {
    RegleMac moment{false, {}, {}, "moment", "Devoirs", 0};
    RegleMac pause{true, {}, {}, "pause_famille", "", 0};
    RegleMac r = moment.fusion(pause);
    EXPECT_TRUE(r.bloquerTout);
    EXPECT_EQ(r.cause, "pause_famille");
    EXPECT_EQ(r.titre, "");
    // Both total: the receiver keeps its message.
    moment.bloquerTout = true;
    EXPECT_EQ(moment.fusion(pause).cause, "moment");
    EXPECT_EQ(moment.fusion(pause).titre, "Devoirs");
    // Receiver total, other not: receiver's.
    EXPECT_EQ(pause.fusion(RegleMac{false, {}, {}, "gage", "G", 0}).cause, "pause_famille");
}

} // namespace
} // namespace tavi
