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
constexpr std::int64_t deux53 = std::int64_t{1} << 53;
constexpr std::int64_t an9999 = 253'402'300'799'000; // 9999-12-31T23:59:59Z

const std::int64_t extremes[] = {min64,  min64 + 1, -deux53,   -1,   0,
                                 deux53, an9999,    max64 - 1, max64};

} // namespace

// A hostile instant gives a far day, in every time zone, never an exception: the day's start
// is at most a day before the instant (taken within years 1 to 9999) and the key is a date.
TEST(InstantsExtremes, LeJourLocalEstToujoursUneDateEtSonDebutLaPrecede) {
    for (const char* fuseau : {"UTC", "Pacific/Kiritimati", "Pacific/Pago_Pago"}) {
        test::FuseauFixe fixe(fuseau);
        for (const std::int64_t instant : extremes) {
            SCOPED_TRACE(std::string(fuseau) + " " + std::to_string(instant));
            std::int64_t debut = 0;
            std::string jour;
            ASSERT_NO_THROW(debut = debutJourLocalMs(instant));
            ASSERT_NO_THROW(jour = jourLocal(instant));
            const std::int64_t borne =
                std::clamp<std::int64_t>(instant, -62'135'596'800'000, an9999 + 999);
            EXPECT_LE(debut, borne);
            EXPECT_GT(debut, borne - 86'400'000 - 3'600'000);
            EXPECT_EQ(jour, jourLocal(debut)) << "the day's start belongs to the same day";
            EXPECT_TRUE(jour.size() == 10 || jour.size() == 11) << jour;
        }
    }
}

// The daily limit used up at any instant gives a rule until the end of a day, never an
// exception that would end the agent.
TEST(InstantsExtremes, LaRegleDeLInstantEstDonneeAToutInstant) {
    test::FuseauFixe paris("Europe/Paris");
    const auto consigne = decoderConsigne(R"({"limite_jour_min": 1, "protege_maintenant": true,
        "ouvert_jusqu_ms": -9223372036854775808,
        "regle": {"mode": "familles", "familles": ["jeux"]}, "fin_ms": 0,
        "programme": [{"debut_ms": -9223372036854775808, "fin_ms": 9223372036854775807,
                       "regle": {"mode": "familles", "familles": ["jeux"]}}],
        "mac": {"limites": [{"id": "l", "nom": "Jeux", "minutes": 1, "applis": ["jeu"]}]}})");
    ASSERT_TRUE(consigne) << consigne.error().message;
    for (const std::int64_t instant : extremes) {
        SCOPED_TRACE(instant);
        std::optional<RegleMac> regle;
        ASSERT_NO_THROW(regle = Programme::regleCourante(*consigne, instant, 120, 120));
        ASSERT_TRUE(regle);
        EXPECT_TRUE(regle->bloquerTout);
        EXPECT_GT(regle->fin, debutJourLocalMs(instant));
        std::optional<RegleMac> sieste;
        ASSERT_NO_THROW(sieste = Programme::siesteAppli(
                            "jeu", *consigne, [](const std::string&) { return 120.0; }, instant));
        ASSERT_TRUE(sieste);
        EXPECT_EQ(sieste->cause, "limite_appli");
    }
}

// An answer from any instant, and any number the child writes in the store, leave the server
// time within 2020 to 2100.
TEST(InstantsExtremes, LHeureDuServeurResteDansSaFenetreQuoiQuOnLuiDonne) {
    test::DossierTemporaire dossier;
    ReglagesSqlite reglages(dossier / "reglages.sqlite");
    FaussesHorloges horloges;
    std::optional<Horloge::Echantillon> propre;
    const auto maintenant = [&] { return Horloge::maintenant(reglages, horloges, propre); };

    for (const std::int64_t instant : extremes) {
        ASSERT_NO_THROW(
            Horloge::noter(reglages, horloges, propre, instant, horloges.mono - 10, horloges.mono));
        ASSERT_NO_THROW(
            Horloge::noter(reglages, horloges, propre, horloges.murale, instant, horloges.mono));
        EXPECT_EQ(maintenant(), horloges.murale) << instant;
    }
    EXPECT_FALSE(propre);

    for (const double valeur :
         {0x1p63, -0x1p63, 1e300, -1e300, double(INFINITY), double(NAN), 9e15, -9e15, 0.0, -1.0}) {
        SCOPED_TRACE(valeur);
        for (const char* cle : {"h_serveur_a", "h_mono_a", "h_demarrage", "h_ecart", "h_ar"})
            reglages.ecrire(cle, valeur);
        for (const std::int64_t murale : {min64, horloges.murale, max64}) {
            horloges.murale = murale;
            std::int64_t heure = 0;
            ASSERT_NO_THROW(heure = maintenant());
            EXPECT_GE(heure, Horloge::premierInstantMs);
            EXPECT_LE(heure, Horloge::dernierInstantMs);
        }
        horloges.murale = 1'795'000'000'000;
    }
}
