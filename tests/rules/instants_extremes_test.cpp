#include "commun/jour.h"
#include "fausses_horloges.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "rules/consigne_json.h"
#include "rules/horloge.h"
#include "rules/programme.h"
#include "support/dossier_temporaire.h"
#include "support/fuseau.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace tavi;

namespace {

constexpr auto min64 = std::numeric_limits<std::int64_t>::min();
constexpr auto max64 = std::numeric_limits<std::int64_t>::max();
const std::int64_t extremes[] = {min64, -(1LL << 53), 0, 1LL << 53, 253'402'300'799'000, max64};

} // namespace

// A hostile instant gives a far day in any zone, and the rule of a used-up limit until its end,
// never an exception that would end the agent.
TEST(InstantsExtremes, LeJourEtLaRegleSontDonnesAToutInstant) {
    const auto consigne =
        decoderConsigne(R"({"limite_jour_min": 1, "ouvert_jusqu_ms": -9223372036854775808})");
    for (const char* fuseau : {"Pacific/Kiritimati", "Pacific/Pago_Pago"}) {
        test::FuseauFixe fixe(fuseau);
        for (const std::int64_t instant : extremes) {
            SCOPED_TRACE(std::string(fuseau) + " " + std::to_string(instant));
            const std::int64_t borne =
                std::clamp(instant, premierInstantCalendrierMs, dernierInstantCalendrierMs);
            const std::int64_t debut = debutJourLocalMs(instant);
            EXPECT_LE(debut, borne);
            EXPECT_GT(debut, borne - 26 * 3'600'000);
            EXPECT_EQ(jourLocal(instant), jourLocal(debut));
            const auto regle = Programme::regleCourante(*consigne, instant, 120, 120);
            ASSERT_TRUE(regle && regle->bloquerTout);
            EXPECT_EQ(regle->fin, debut + 86'400'000);
        }
    }
}

// Whatever an answer or the child's store says, the server time stays within 2020 to 2100.
TEST(InstantsExtremes, LHeureDuServeurResteDansSaFenetre) {
    test::DossierTemporaire dossier;
    ReglagesSqlite reglages(dossier / "reglages.sqlite");
    FaussesHorloges horloges;
    std::optional<Horloge::Echantillon> propre;
    for (const std::int64_t instant : extremes) {
        Horloge::noter(reglages, horloges, propre, instant, horloges.mono - 10, horloges.mono);
        Horloge::noter(reglages, horloges, propre, horloges.murale, instant, horloges.mono);
    }
    EXPECT_FALSE(propre);
    for (const double valeur : {0x1p63, -0x1p63, 1e300, double(NAN), 9e15, -9e15, -1.0}) {
        for (const char* cle : {"h_serveur_a", "h_mono_a", "h_demarrage", "h_ecart", "h_ar"})
            reglages.ecrire(cle, valeur);
        for (const std::int64_t murale : {min64, max64}) {
            horloges.murale = murale;
            const std::int64_t heure = Horloge::maintenant(reglages, horloges, propre);
            EXPECT_TRUE(heure >= Horloge::premierInstantMs && heure <= Horloge::dernierInstantMs);
        }
    }
}
