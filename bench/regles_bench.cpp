#include "rules/consigne_json.h"
#include "rules/programme.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>

// Every allocation of the process is counted, so that a benchmark can report how many one
// evaluation makes.
namespace {
std::atomic<long> allocations{0};
}

void* operator new(std::size_t taille) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(taille ? taille : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using tavi::Consigne;

constexpr std::int64_t lundi = 1795388400000; // 2026-11-23T00:00+01:00
constexpr std::int64_t heure = 3'600'000;

nlohmann::json domainesBloques() {
    nlohmann::json domaines = nlohmann::json::array();
    for (int i = 0; i < 40; ++i)
        domaines.push_back("site-bloque-" + std::to_string(i) + ".example");
    return domaines;
}

// Four school days: 20 ranges (school morning and afternoon, homework, dinner, night) and the
// rest of a typical answer, about 4 KB.
std::string consigneRealiste() {
    nlohmann::json programme = nlohmann::json::array();
    for (int jour = 0; jour < 4; ++jour) {
        const std::int64_t j = lundi + jour * 24 * heure;
        programme.push_back({{"debut_ms", j + 8 * heure + heure / 2},
                             {"fin_ms", j + 12 * heure},
                             {"regle", {{"mode", "familles"}, {"familles", {"jeux", "videos"}}}},
                             {"cause", "ecole"},
                             {"titre", "École"}});
        programme.push_back({{"debut_ms", j + 13 * heure + heure / 2},
                             {"fin_ms", j + 16 * heure + heure / 2},
                             {"regle", {{"mode", "familles"}, {"familles", {"jeux", "videos"}}}},
                             {"cause", "ecole"},
                             {"titre", "École"}});
        programme.push_back({{"debut_ms", j + 17 * heure},
                             {"fin_ms", j + 18 * heure},
                             {"regle", {{"mode", "familles"}, {"familles", {"jeux"}}}},
                             {"titre", "Devoirs"}});
        programme.push_back({{"debut_ms", j + 19 * heure + heure / 2},
                             {"fin_ms", j + 20 * heure},
                             {"regle", {{"mode", "familles"}, {"familles", {"reseaux"}}}},
                             {"titre", "Dîner"}});
        programme.push_back(
            {{"debut_ms", j + 21 * heure}, {"fin_ms", j + 31 * heure}, {"titre", "Dodo"}});
    }
    nlohmann::json c = {
        {"heure_serveur_ms", lundi + 10 * heure},
        {"prenom", "Léa"},
        {"tirelire_min", 25},
        {"limite_jour_min", 120},
        {"reste_jour_min", 45.5},
        {"programme", programme},
        {"mac",
         {{"limites",
           {{{"id", "jeux"},
             {"nom", "Jeux"},
             {"minutes", 60},
             {"applis", {"steam", "org.prismlauncher.PrismLauncher", "net.lutris.Lutris"}}},
            {{"id", "video"},
             {"nom", "Vidéos"},
             {"minutes", 45},
             {"applis", {"org.videolan.VLC", "mpv"}}}}},
          {"coupees", {"com.discordapp.Discord"}}}},
        {"limites_autres", {{"jeux", 12.5}, {"video", 3}}},
        {"filtre_web",
         {{"actif", true},
          {"domaines_bloques", domainesBloques()},
          {"domaines_autorises", {"wikipedia.org", "ecole.example"}}}},
        {"rapport_applis", {{"actif", true}}},
        {"historique_sites", {{"actif", true}}}};
    return c.dump();
}

const std::optional<Consigne>& consigne() {
    static const std::optional<Consigne> c = *tavi::decoderConsigne(consigneRealiste());
    return c;
}

void evaluer(benchmark::State& etat, std::int64_t maintenant, std::optional<double> depuis) {
    const auto& c = consigne();
    long avant = allocations.load();
    for (auto _ : etat) {
        auto regle = tavi::Programme::regleCourante(c, maintenant, depuis, 600);
        benchmark::DoNotOptimize(regle);
    }
    etat.counters["allocations"] = benchmark::Counter(
        static_cast<double>(allocations.load() - avant), benchmark::Counter::kAvgIterations);
}

void RegleCourante_AucunePlage(benchmark::State& e) {
    evaluer(e, lundi + 7 * heure, 60.0);
}
void RegleCourante_PlageEcole(benchmark::State& e) {
    evaluer(e, lundi + 10 * heure, 60.0);
}
void RegleCourante_LimiteAtteinte(benchmark::State& e) {
    evaluer(e, lundi + 7 * heure, 1e5);
}
BENCHMARK(RegleCourante_AucunePlage);
BENCHMARK(RegleCourante_PlageEcole);
BENCHMARK(RegleCourante_LimiteAtteinte);

void DecoderConsigne_4Ko(benchmark::State& etat) {
    const std::string texte = consigneRealiste();
    for (auto _ : etat) {
        auto c = tavi::decoderConsigne(texte);
        benchmark::DoNotOptimize(c);
    }
    etat.SetBytesProcessed(static_cast<std::int64_t>(etat.iterations() * texte.size()));
    etat.counters["octets"] = static_cast<double>(texte.size());
}
BENCHMARK(DecoderConsigne_4Ko);

} // namespace

BENCHMARK_MAIN();
