// Loading the desktop entries' index: this machine's folders, and a made-up desktop with as
// many entries as a full GNOME or KDE installation, each translated as Debian ships them.
#include "platform/linux/index_entrees.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

using namespace tavi;
namespace fs = std::filesystem;

namespace {

void chargerMachine(benchmark::State& etat) {
    const auto environnement = EnvironnementXdg::duProcessus();
    std::size_t entrees = 0;
    for (auto _ : etat)
        entrees = IndexEntrees::charger(environnement)->entrees().size();
    etat.counters["entrees"] = static_cast<double>(entrees);
}
BENCHMARK(chargerMachine)->Unit(benchmark::kMillisecond);

void chargerBureauComplet(benchmark::State& etat) {
    std::string modele = (fs::temp_directory_path() / "tavi-bench-XXXXXX").string();
    if (!mkdtemp(modele.data())) {
        etat.SkipWithError("mkdtemp");
        return;
    }
    const fs::path racine(modele);
    fs::create_directories(racine / "share/applications");
    const auto nombre = static_cast<int>(etat.range(0));
    for (int i = 0; i < nombre; ++i) {
        std::ofstream f(racine / "share/applications" /
                        ("org.exemple.App" + std::to_string(i) + ".desktop"));
        f << "[Desktop Entry]\nType=Application\nName=App " << i << "\n";
        for (int l = 0; l < 80; ++l)
            f << "Name[l" << l << "]=Application " << i << " traduite\nComment[l" << l
              << "]=Une description un peu longue de l'application\n";
        f << "Exec=app" << i << " %U\nCategories=Game;ArcadeGame;\nMimeType=text/plain;\n";
    }
    EnvironnementXdg environnement;
    environnement.donneesMaison = (racine / "vide").string();
    environnement.donnees = (racine / "share").string();
    environnement.locale = "fr_FR.UTF-8";
    for (auto _ : etat)
        benchmark::DoNotOptimize(IndexEntrees::charger(environnement));
    fs::remove_all(racine);
}
BENCHMARK(chargerBureauComplet)->Arg(300)->Unit(benchmark::kMillisecond);

void identifierInconnue(benchmark::State& etat) {
    const auto index = IndexEntrees::charger(EnvironnementXdg::duProcessus());
    const IndicesFenetre indices{getpid(), "inconnue", "Inconnue", ""};
    for (auto _ : etat)
        benchmark::DoNotOptimize(index->identifier(indices));
}
BENCHMARK(identifierInconnue)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
