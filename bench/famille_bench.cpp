// One heartbeat of the family server's store (no HTTP), on a real SQLite file, while another
// computer of the same child has filled the per-day tables.
//   bench_famille --benchmark_counters_tabular=true
#include "base_temporaire.h"
#include "battement.h"
#include "depot.h"
#include "temps.h"

#include <benchmark/benchmark.h>
#include <date/tz.h>
#include <filesystem>

using namespace tavi::famille;
using nlohmann::json;

namespace {

struct Famille {
    tavi::bench::BaseTemporaire dossier;
    Depot depot{dossier.fichier().string(), Base::Ouverture::creer};
    Acces inondeur, autre;

    Famille() {
        depot.ajouterEnfant("Léa", "fr", "Europe/Paris", maintenantMs());
        depot.modifier("Léa", [](Enfant& e) {
            e.reglages.limiteJourMin = 120;
            e.reglages.limitesApplis = {{"jeux", "Jeux", 30, {"steam"}}};
        });
        inondeur = ordinateur("pc-1");
        autre = ordinateur("pc-2");
    }
    Acces ordinateur(const std::string& installation) {
        auto code = depot.creerCode("Léa", maintenantMs()).code;
        auto a = depot.appairer(code, installation, installation, "0.1.0", maintenantMs());
        return *depot.authentifier(a->jeton);
    }
};

Battement battement(double minutes) {
    Battement b;
    b.autorisations = {{"ouverture_session", true}};
    b.utiliseJourMin = minutes;
    b.minutesLimites = {{"steam", minutes / 2}};
    return b;
}

// The biggest message the reader lets through, with invented applications: 5,000 limited
// minutes, 40 days of 5,000 applications each with their names.
Battement inondation(int tour) {
    Battement b = battement(10);
    LotUsage lot;
    const auto& utc = *date::locate_zone("UTC");
    for (int a = 0; a < 5000; ++a) {
        std::string appli = "appli-" + std::to_string(tour) + "-" + std::to_string(a);
        b.minutesLimites[appli] = 1;
        lot.noms[appli] = appli;
        for (int j = 0; j < 40; ++j)
            lot.jours[jourLocal(maintenantMs() - j * 86400000LL, utc)][appli] = 1;
    }
    b.usageApplis = lot;
    return b;
}

std::int64_t compter(Depot& depot, const char* sql) {
    auto r = depot.base().requete(sql);
    return r.ligne() ? r.entier(0) : 0;
}

// Argument: the flooding heartbeats the other computer sent first, through the store.
void BattementApresInondation(benchmark::State& etat) {
    Famille f;
    for (int tour = 0; tour < etat.range(0); ++tour)
        f.depot.battre(f.inondeur, inondation(tour), maintenantMs());
    double minutes = 0;
    for (auto _ : etat)
        benchmark::DoNotOptimize(
            f.depot.battre(f.autre, battement(minutes += 0.1), maintenantMs()));
    etat.counters["lignes"] =
        double(compter(f.depot, "SELECT (SELECT COUNT(*) FROM usage_applis) + "
                                "(SELECT COUNT(*) FROM minutes_limites) + "
                                "(SELECT COUNT(*) FROM noms_applis)"));
    etat.counters["Mio"] =
        double(std::filesystem::file_size(f.dossier.fichier()) +
               std::filesystem::file_size(f.dossier.fichier().string() + "-wal")) /
        (1 << 20);
}
BENCHMARK(BattementApresInondation)->Arg(0)->Arg(5)->Unit(benchmark::kMillisecond);

// Argument: today's rows of limited minutes of the other computer, as a store without bounds
// let a client write them: the cost every heartbeat of the child pays for them.
void BattementAvecGrandeTable(benchmark::State& etat) {
    Famille f;
    f.depot.battre(f.inondeur, battement(1), maintenantMs());
    f.depot.base()
        .requete("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                 "WHERE i < ?) INSERT INTO minutes_limites SELECT o.id, u.jour, "
                 "'appli-' || n.i, 1 FROM n, ordinateurs o JOIN usage_jour u ON "
                 "u.ordinateur_id = o.id")
        .avec(std::int64_t(etat.range(0)))
        .executer();
    double minutes = 0;
    for (auto _ : etat)
        benchmark::DoNotOptimize(
            f.depot.battre(f.autre, battement(minutes += 0.1), maintenantMs()));
}
BENCHMARK(BattementAvecGrandeTable)
    ->Arg(0)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
