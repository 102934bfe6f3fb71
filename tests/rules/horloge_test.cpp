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
// A server instant of the test's days; the wall clock starts there too.
constexpr std::int64_t t0 = 1'795'000'000'000;

// The server clock over the real store in a temporary folder, with clocks the test moves and
// the sample the process keeps in memory.
class HorlogeServeur : public testing::Test {
protected:
    DossierTemporaire dossier;
    std::unique_ptr<ReglagesSqlite> reglages =
        std::make_unique<ReglagesSqlite>(dossier / "reglages.sqlite");
    FaussesHorloges horloges;
    std::optional<Horloge::Echantillon> propre;

    // A heartbeat answered with `serveurMs` after `allerRetourMs`, arriving now.
    void noterAvec(std::int64_t serveurMs, std::int64_t allerRetourMs) {
        Horloge::noter(*reglages, horloges, propre, serveurMs, horloges.mono - allerRetourMs,
                       horloges.mono);
    }
    std::int64_t maintenant() const { return Horloge::maintenant(*reglages, horloges, propre); }
    // The agent starts again: the store stays, the memory goes.
    void relancer() {
        reglages.reset();
        reglages = std::make_unique<ReglagesSqlite>(dossier / "reglages.sqlite");
        propre.reset();
    }
};

} // namespace

TEST_F(HorlogeServeur, UnEchantillonValableEstAvanceDeLaMoitieDeLAllerRetourArrondieVersLeBas) {
    EXPECT_EQ(maintenant(), horloges.murale);
    noterAvec(0, 100);
    noterAvec(-5, 100);
    noterAvec(t0 + 50'000, 3001);
    noterAvec(t0 + 50'000, -3);
    EXPECT_EQ(maintenant(), horloges.murale) << "absent, too slow or reversed: not a sample";
    noterAvec(t0 + 50'000, 3000);
    EXPECT_EQ(maintenant(), t0 + 51'500);

    // The retained reading is advanced by half the round trip, rounded down.
    horloges.avancer(6 * minute);
    noterAvec(t0 + 10'000, 201);
    horloges.avancer(2'500);
    EXPECT_EQ(maintenant(), t0 + 12'600);
}

TEST_F(HorlogeServeur, DansLesCinqMinutesSeulUnAllerRetourAussiBonRemplaceApresToutLeFait) {
    noterAvec(t0 + 1'000'000, 200);
    const auto retenuA = maintenant();

    horloges.avancer(2 * minute);
    noterAvec(t0 + 9'000'000, 250);
    EXPECT_EQ(maintenant(), retenuA + 2 * minute);

    noterAvec(t0 + 2'000'000, 200);
    EXPECT_EQ(maintenant(), t0 + 2'000'100);

    // Five minutes to the millisecond after B is still within its reign; one more is not.
    horloges.avancer(5 * minute);
    noterAvec(t0 + 3'000'000, 250);
    EXPECT_EQ(maintenant(), t0 + 2'000'100 + 5 * minute);
    horloges.avancer(1);
    noterAvec(t0 + 3'000'000, 900);
    EXPECT_EQ(maintenant(), t0 + 3'000'450);
    EXPECT_EQ(reglages->nombre("h_ar"), 900);
}

TEST_F(HorlogeServeur, UnEchantillonDUnAutreDemarrageOuDUneMonotoneEnAvanceEstRemplace) {
    noterAvec(t0 + 1'000'000, 100);
    relancer();

    horloges.avancer(minute);
    horloges.identite = 777;
    noterAvec(t0 + 2'000'000, 2'000);
    EXPECT_EQ(maintenant(), t0 + 2'001'000);

    // A retained reading ahead of the arrival cannot be from this boot's clock.
    relancer();
    horloges.mono -= 30'000;
    noterAvec(t0 + 3'000'000, 2'500);
    EXPECT_EQ(maintenant(), t0 + 3'001'250);
}

TEST_F(HorlogeServeur, HorsDeSonDemarrageLEchantillonCorrigeLHeureMuraleDedansIlLIgnore) {
    noterAvec(t0 + 42'000, 400);
    const auto ecart = 42'200;

    relancer();
    horloges.avancer(10 * minute);
    horloges.redemarrer(99);
    EXPECT_EQ(maintenant(), horloges.murale + ecart);

    // Back on the same boot's identity, a monotonic clock behind the sample is another boot.
    horloges.identite = 4242;
    horloges.mono = 1'000;
    EXPECT_EQ(maintenant(), horloges.murale + ecart);

    // On the sample's own boot the wall clock plays no part, even across the agent's restart.
    horloges.mono = 1'000'000;
    noterAvec(t0, 200);
    horloges.avancer(minute);
    const auto avant = maintenant();
    horloges.murale -= heure;
    EXPECT_EQ(maintenant(), avant);

    relancer();
    EXPECT_EQ(maintenant(), avant);
    // Its five-minute reign holds across the restart too, for an answer that agrees with it.
    horloges.avancer(minute);
    noterAvec(avant + minute + 900, 250);
    EXPECT_EQ(maintenant(), avant + minute);
}

// The child rewrites the store while the agent runs, or before it starts: the process keeps
// its own sample, refuses one no heartbeat could have given, and lets the first answer that
// disagrees replace one that was moved.
TEST_F(HorlogeServeur, UnEchantillonStockeDeplaceOuSansAllerRetourNeGagnePasSurLeServeur) {
    noterAvec(t0, 200);
    horloges.avancer(minute);
    reglages->ecrire("h_serveur_a", static_cast<double>(t0 + 3 * heure));
    reglages->ecrire("h_ar", -1.0);
    EXPECT_EQ(maintenant(), t0 + 100 + minute) << "the process trusts its own sample";

    relancer();
    EXPECT_EQ(maintenant(), horloges.murale + 100) << "a round trip of -1 ms was never ours";
    reglages->ecrire("h_ar", 0.0);
    EXPECT_EQ(maintenant(), horloges.murale + 100);

    // A plausible stored sample moved by three hours holds until the next answer, which
    // contradicts it by far more than its round trip plus a second.
    reglages->ecrire("h_ar", 50.0);
    EXPECT_EQ(maintenant(), t0 + 3 * heure + minute);
    horloges.avancer(2 * minute);
    noterAvec(t0 + 3 * minute, 400);
    EXPECT_EQ(maintenant(), t0 + 3 * minute + 200);
    EXPECT_EQ(reglages->nombre("h_serveur_a"), t0 + 3 * minute + 200);

    // Within a second and the answer's round trip it stands, and stays even once edited again.
    relancer();
    horloges.avancer(minute);
    noterAvec(t0 + 4 * minute + 200 + 1'500 - 250, 500);
    EXPECT_EQ(maintenant(), t0 + 4 * minute + 200);
    reglages->ecrire("h_serveur_a", static_cast<double>(t0 + 3 * heure));
    EXPECT_EQ(maintenant(), t0 + 4 * minute + 200);
}
