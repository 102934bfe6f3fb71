#include "platform/sqlite/reglages_sqlite.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

using namespace tavi;

namespace {

// The store on the real disk, in a fresh folder under the temporary folder: the cost of a
// commit is the cost of the disk's sync.
class BaseTemporaire {
public:
    BaseTemporaire() {
        std::string modele =
            (std::filesystem::temp_directory_path() / "tavi-bench-XXXXXX").string();
        if (mkdtemp(modele.data())) dossier = modele;
    }
    ~BaseTemporaire() {
        std::error_code ignore;
        std::filesystem::remove_all(dossier, ignore);
    }
    std::filesystem::path fichier() const { return dossier / "reglages.sqlite"; }

private:
    std::filesystem::path dossier;
};

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
