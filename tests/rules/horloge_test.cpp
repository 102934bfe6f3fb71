#include "fausses_horloges.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "rules/horloge.h"
#include "support/dossier_temporaire.h"

#include <gtest/gtest.h>
#include <limits>
#include <memory>

using namespace tavi;
using test::DossierTemporaire;

namespace {

constexpr std::int64_t minute = 60'000;
constexpr std::int64_t heure = 60 * minute;

// The server clock over the real store in a temporary folder, with clocks the test moves.
class HorlogeServeur : public testing::Test {
protected:
    DossierTemporaire dossier;
    std::unique_ptr<ReglagesSqlite> reglages =
        std::make_unique<ReglagesSqlite>(dossier / "reglages.sqlite");
    FaussesHorloges horloges;

    // A heartbeat answered with `serveurMs` after `allerRetourMs`, arriving now.
    void noterAvec(std::int64_t serveurMs, std::int64_t allerRetourMs) {
        Horloge::noter(*reglages, horloges, serveurMs, horloges.mono - allerRetourMs,
                       horloges.mono);
    }
    std::int64_t maintenant() const { return Horloge::maintenant(*reglages, horloges); }
};

} // namespace

TEST_F(HorlogeServeur, UnEchantillonValableEstAvanceDeLaMoitieDeLAllerRetourArrondieVersLeBas) {
    EXPECT_EQ(maintenant(), horloges.murale);
    noterAvec(0, 100);
    noterAvec(-5, 100);
    noterAvec(50'000, 3001);
    EXPECT_EQ(maintenant(), horloges.murale);
    noterAvec(50'000, 3000);
    EXPECT_EQ(maintenant(), 51'500);

    // The retained reading is advanced by half the round trip, rounded down.
    horloges.avancer(6 * minute);
    noterAvec(10'000, 201);
    horloges.avancer(2'500);
    EXPECT_EQ(maintenant(), 12'600);

    // A reversed round trip from a confused caller: halving still rounds toward minus infinity.
    horloges.avancer(6 * minute);
    noterAvec(10'000, -3);
    EXPECT_EQ(maintenant(), 9'998);
}

TEST_F(HorlogeServeur, DansLesCinqMinutesSeulUnAllerRetourAussiBonRemplaceApresToutLeFait) {
    noterAvec(1'000'000, 200);
    const auto retenuA = maintenant();

    horloges.avancer(2 * minute);
    noterAvec(9'000'000, 250);
    EXPECT_EQ(maintenant(), retenuA + 2 * minute);

    noterAvec(2'000'000, 200);
    EXPECT_EQ(maintenant(), 2'000'100);

    // Five minutes to the millisecond after B is still within its reign; one more is not.
    horloges.avancer(5 * minute);
    noterAvec(3'000'000, 250);
    EXPECT_EQ(maintenant(), 2'000'100 + 5 * minute);
    horloges.avancer(1);
    noterAvec(3'000'000, 900);
    EXPECT_EQ(maintenant(), 3'000'450);
    EXPECT_EQ(reglages->nombre("h_ar"), 900);
}

TEST_F(HorlogeServeur, UnEchantillonDUnAutreDemarrageOuDUneMonotoneEnAvanceEstRemplace) {
    noterAvec(1'000'000, 100);

    horloges.avancer(minute);
    horloges.identite = 777;
    noterAvec(2'000'000, 2'000);
    EXPECT_EQ(maintenant(), 2'001'000);

    // A retained reading ahead of the arrival cannot be from this boot's clock.
    horloges.mono -= 30'000;
    noterAvec(3'000'000, 2'500);
    EXPECT_EQ(maintenant(), 3'001'250);
}

TEST_F(HorlogeServeur, ApresUnRedemarrageCEstLHeureMuraleCorrigeeDeLEcartConnu) {
    horloges.murale = 1'795'000'000'000;
    noterAvec(1'795'000'042'000, 400);
    const auto ecart = 1'795'000'042'200 - 1'795'000'000'000;

    horloges.avancer(10 * minute);
    horloges.redemarrer(99);
    EXPECT_EQ(maintenant(), horloges.murale + ecart);

    // Back on the same boot's identity, a monotonic clock behind the sample is another boot.
    horloges.identite = 4242;
    horloges.mono = 1'000;
    EXPECT_EQ(maintenant(), horloges.murale + ecart);
}

TEST_F(HorlogeServeur, LEchantillonIgnoreLHeureMuraleEtSurvitAuRedemarrageDeLAgent) {
    noterAvec(1'795'000'000'000, 200);
    horloges.avancer(minute);
    const auto avant = maintenant();
    horloges.murale -= heure;
    EXPECT_EQ(maintenant(), avant);

    reglages.reset();
    reglages = std::make_unique<ReglagesSqlite>(dossier / "reglages.sqlite");
    EXPECT_EQ(maintenant(), avant);
    // Its five-minute reign holds across the restart too.
    horloges.avancer(minute);
    noterAvec(1'795'000'999'000, 250);
    EXPECT_EQ(maintenant(), avant + minute);
}

TEST_F(HorlogeServeur, UnMagasinTrafiqueOuDesNombresHorsBornesNeFontPasTomberLAgent) {
    constexpr auto max = std::numeric_limits<std::int64_t>::max();
    reglages->ecrire("h_serveur_a", INFINITY);
    reglages->ecrire("h_ecart", 1e300);
    EXPECT_EQ(maintenant(), horloges.murale);

    // A sample whose advance overflows gives way to the wall clock plus the offset, and an
    // offset that overflows to the wall clock alone.
    reglages->ecrire("h_serveur_a", 0x1p62);
    reglages->ecrire("h_mono_a", -0x1p62);
    reglages->ecrire("h_demarrage", static_cast<double>(horloges.identite));
    reglages->ecrire("h_ecart", 0x1p62);
    horloges.mono = max - 10;
    horloges.murale = -(std::int64_t{1} << 62) - 5;
    EXPECT_EQ(maintenant(), -5);
    horloges.murale = max - 5;
    EXPECT_EQ(maintenant(), max - 5);

    // Samples whose arithmetic would overflow are ignored; a good one replaces an unreadable one.
    Horloge::noter(*reglages, horloges, max - 100, 0, 2'000);
    Horloge::noter(*reglages, horloges, 1'000, std::numeric_limits<std::int64_t>::min(), 2'000);
    EXPECT_EQ(reglages->nombre("h_serveur_a"), 0x1p62);
    reglages->ecrire("h_mono_a", -INFINITY);
    reglages->ecrire("h_ar", INFINITY);
    horloges.murale = 1'795'000'000'000;
    horloges.mono = 50'000;
    noterAvec(1'795'000'000'000, 100);
    EXPECT_EQ(maintenant(), 1'795'000'000'050);
}
