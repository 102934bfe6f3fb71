#include "base_temporaire.h"
#include "observation/compteur.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "session_active.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

using namespace tavi;
using tavi::bench::BaseTemporaire;
using tavi::bench::SessionActive;

namespace {

constexpr std::int64_t midi = 1'795'000'000'000;

// Seven days of 50 applications, as a heavy week leaves the record.
void remplirSemaine(Compteur& compteur, std::int64_t& maintenant) {
    for (int jour = 0; jour < 7; ++jour, maintenant += 86'400'000)
        for (int appli = 0; appli < 50; ++appli)
            for (int tic = 0; tic < 4; ++tic)
                compteur.tic(10, false,
                             AppliDeFace{"org.exemple.appli" + std::to_string(appli),
                                         "Application " + std::to_string(appli)});
    maintenant -= 86'400'000;
}

// What the engine does every second: one counted tick with the application in front, its
// writes committed to disk.
void ticCompte(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    SessionActive session;
    std::int64_t maintenant = midi;
    Compteur compteur(reglages, session, [&] { return maintenant; });
    if (etat.range(0)) remplirSemaine(compteur, maintenant);
    const AppliDeFace appli{"org.mozilla.firefox", "Firefox"};
    for (auto _ : etat)
        compteur.tic(1, false, appli);
    if (reglages.echecs() > 0) etat.SkipWithError("writes were given up");
}
BENCHMARK(ticCompte)->Arg(0)->Arg(1)->ArgName("semaine_pleine");

// The heartbeat's batch over 7 days of 50 applications.
void lotUsage(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    SessionActive session;
    std::int64_t maintenant = midi;
    Compteur compteur(reglages, session, [&] { return maintenant; });
    remplirSemaine(compteur, maintenant);
    for (auto _ : etat)
        benchmark::DoNotOptimize(compteur.lotUsage());
}
BENCHMARK(lotUsage);

} // namespace

BENCHMARK_MAIN();
