#include "base_temporaire.h"
#include "engine/moteur.h"
#include "engine/voile_console.h"
#include "platform/linux/applications_xdg.h"
#include "platform/linux/categories_xdg.h"
#include "platform/linux/demarrage_linux.h"
#include "platform/linux/horloges_linux.h"
#include "platform/linux/navigation_linux.h"
#include "platform/linux/systeme_linux.h"
#include "platform/memoire/coffre_memoire.h"
#include "platform/qt/boucle_qt.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/stockage.h"
#include "server/transport_curl.h"
#include "session_active.h"

#include <QCoreApplication>
#include <QTimer>
#include <benchmark/benchmark.h>
#include <chrono>
#include <nlohmann/json.hpp>
#include <unistd.h>

using namespace tavi;
using tavi::bench::BaseTemporaire;
using tavi::bench::SessionActive;

namespace {

constexpr std::int64_t heure = 3'600'000;

// A desktop with a text editor in front, which no rule of the bench's rule set touches.
class BureauFixe : public Bureau {
public:
    std::optional<Application> applicationAuPremierPlan() const override { return editeur; }
    std::vector<Application> applicationsOuvertes() const override { return {editeur}; }
    void masquer(const Application&) override {}
    std::int64_t notrePid() const override { return getpid(); }
    std::unique_ptr<Abonnement>
    observerActivation(std::function<void(const Application&)>) override {
        return std::make_unique<Abonnement>();
    }
    bool premierPlanObservable() const override { return true; }

    Application editeur{"org.gnome.TextEditor",
                        "/usr/share/applications/org.gnome.TextEditor.desktop", "Éditeur de texte",
                        4242};
};

// The system's clocks, one second later at each tick, as the agent's timer sees them: ticks
// that follow each other within the same millisecond would count nothing and skip the
// counter's commit, the costliest part of a tick.
class HorlogesDuBanc : public Horloges {
public:
    std::int64_t monotoniqueMs() const override { return systeme.monotoniqueMs() + decalage; }
    std::int64_t monotoniqueEveilleMs() const override {
        return systeme.monotoniqueEveilleMs() + decalage;
    }
    std::int64_t muraleMs() const override { return systeme.muraleMs() + decalage; }
    std::int64_t demarrage() const override { return systeme.demarrage(); }

    HorlogesLinux systeme;
    std::int64_t decalage = 0;
};

// A school day around now: school ranges, homework, the night, two application limits and a
// cut-off application; `pause` adds a family pause over the whole computer.
std::string consigne(bool pause) {
    const std::int64_t maintenant = std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::system_clock::now().time_since_epoch())
                                        .count();
    const std::int64_t jour = maintenant - maintenant % (24 * heure);
    nlohmann::json programme = nlohmann::json::array();
    for (int j = -1; j <= 1; ++j) {
        const std::int64_t debut = jour + j * 24 * heure;
        programme.push_back({{"debut_ms", debut + 8 * heure},
                             {"fin_ms", debut + 16 * heure},
                             {"regle", {{"mode", "familles"}, {"familles", {"jeux", "videos"}}}},
                             {"cause", "ecole"},
                             {"titre", "École"}});
        programme.push_back({{"debut_ms", debut + 17 * heure},
                             {"fin_ms", debut + 18 * heure},
                             {"regle", {{"mode", "familles"}, {"familles", {"jeux"}}}},
                             {"titre", "Devoirs"}});
        programme.push_back({{"debut_ms", debut + 21 * heure},
                             {"fin_ms", debut + 31 * heure},
                             {"regle", {{"mode", "familles"}, {"familles", {"jeux", "reseaux"}}}},
                             {"titre", "Dodo"}});
    }
    nlohmann::json c = {
        {"heure_serveur_ms", maintenant},
        {"prenom", "Léa"},
        // Generous enough that the measure, a day of ticks at most, never reaches it.
        {"limite_jour_min", 3000},
        {"reste_jour_min", 2900},
        {"programme", programme},
        {"mac",
         {{"limites",
           {{{"id", "jeux"}, {"nom", "Jeux"}, {"minutes", 60}, {"applis", {"steam"}}},
            {{"id", "video"},
             {"nom", "Vidéos"},
             {"minutes", 45},
             {"applis", {"org.videolan.VLC"}}}}},
          {"coupees", {"com.discordapp.Discord"}}}},
    };
    if (pause) {
        c["protege_maintenant"] = true;
        c["cause"] = "pause_famille";
        c["fin_ms"] = maintenant + 1000 * heure; // longer than the measure
        c["regle"] = {{"mode", "tout"}};
    }
    return c.dump();
}

// One tick of the paired engine as the agent runs it, every second: the counter's write
// committed to SQLite on the disk, the browser check, the rule's evaluation and the veil.
// Real clocks, store, loop, transport, desktop entries; the session and the desktop are
// stand-ins that keep the child in front of a text editor. The heartbeat the first tick
// starts waits on the loop, which does not turn during the measure: no other starts.
void ticMoteur(benchmark::State& etat) {
    BaseTemporaire base;
    ReglagesSqlite reglages(base.fichier());
    // A port where nothing listens: a heartbeat would fail at once.
    reglages.ecrire("serveur", std::string("http://127.0.0.1:9"));
    reglages.ecrire("ordinateur_id", std::string("o1"));
    reglages.ecrire("consigne", Donnees{consigne(etat.range(0) != 0)});
    CoffreMemoire coffre;
    Trousseau::ecrire(coffre, "jeton-de-banc-d-essai");

    HorlogesDuBanc horloges;
    SessionActive session;
    BureauFixe bureau;
    NavigationLinux navigation;
    ApplicationsXdg applications(EnvironnementXdg::duProcessus());
    CategoriesXdg categories;
    SystemeLinux systeme;
    // The login entry, as the demo writes it, in the bench's own folder.
    OptionsDemarrage entree;
    entree.executable = "/usr/bin/tavi-home";
    entree.configMaison = base.fichier().parent_path();
    entree.mode = ModeDemarrage::xdg;
    DemarrageLinux demarrage(entree);
    // After the parts its background work uses: it waits for that work before they go.
    BoucleQt boucle;
    auto moteur = std::make_unique<Moteur>(
        Plateforme{horloges, reglages, coffre, boucle, std::make_shared<TransportCurl>(), session,
                   bureau, navigation, applications, categories, systeme, demarrage,
                   [](Moteur&) { return std::make_unique<VoileConsole>(); }});
    moteur->demarrer();
    // The token comes from the pool; the loop sleeps until an event, and this timer is one.
    QTimer reveil;
    reveil.start(20);
    const auto limite = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!moteur->api().jeton() && std::chrono::steady_clock::now() < limite)
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    reveil.stop();
    if (!moteur->api().jeton()) etat.SkipWithError("the token was not read");

    const double avant = moteur->compteur().secondesDuJour();
    for (auto _ : etat) {
        horloges.decalage += 1000;
        moteur->tic();
    }
    if (!etat.range(0) && moteur->compteur().secondesDuJour() <= avant)
        etat.SkipWithError("the ticks counted nothing: the counter's commit was not measured");
    if (reglages.echecs() > 0) etat.SkipWithError("writes were given up");
    etat.counters["voile"] = moteur->voile().affiche();
    moteur.reset();
}
BENCHMARK(ticMoteur)->Arg(0)->Arg(1)->ArgName("pause");

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
