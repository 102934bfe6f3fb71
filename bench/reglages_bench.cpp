#include "base_temporaire.h"
#include "platform/sqlite/reglages_sqlite.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

using namespace tavi;
using tavi::bench::BaseTemporaire;

namespace {

// What the engine writes every second: the day's counter, committed at once.
void ecritureDurable(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    double secondes = 0;
    for (auto _ : etat)
        reglages.ecrire("compteur_s", Valeur{secondes += 1});
    if (reglages.echecs() > 0) etat.SkipWithError("writes were given up");
}
BENCHMARK(ecritureDurable);

// The five keys of a retained clock sample in one transaction.
void groupeDeCinq(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    double n = 0;
    for (auto _ : etat) {
        n += 1;
        reglages.grouper([&] {
            for (const char* cle : {"h_serveur_a", "h_mono_a", "h_demarrage", "h_ecart", "h_ar"})
                reglages.ecrire(cle, Valeur{n});
        });
    }
}
BENCHMARK(groupeDeCinq);

// What the clock reads on every evaluation.
void lecture(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    reglages.ecrire("h_serveur_a", Valeur{1'795'000'000'000.0});
    for (auto _ : etat)
        benchmark::DoNotOptimize(reglages.nombre("h_serveur_a"));
}
BENCHMARK(lecture);

// The stored rule set, a few kilobytes read at start and after each heartbeat.
void lectureDonnees(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    reglages.ecrire("consigne", Valeur{Donnees{std::string(8 * 1024, 'x')}});
    for (auto _ : etat)
        benchmark::DoNotOptimize(reglages.donnees("consigne"));
}
BENCHMARK(lectureDonnees);

} // namespace

BENCHMARK_MAIN();
