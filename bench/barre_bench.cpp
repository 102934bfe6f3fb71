// What the child's small windows cost on the main thread: the tray icon drawn again when the
// minutes left change (at most once a minute), the menu built when it opens, and the welcome
// window's heaviest step (what the parents see, every report on) built and laid out. Offscreen.
#include "ui/accueil_vue.h"
#include "ui/icone_barre.h"
#include "ui/lisible.h"
#include "ui/menu_barre.h"
#include "ui/menu_qt.h"

#include <QApplication>
#include <QMenu>
#include <benchmark/benchmark.h>

namespace {

using namespace tavi;

void BM_IconeBarre(benchmark::State& etat) {
    int minutes = 0;
    for (auto _ : etat) {
        const QIcon icone =
            iconeQt({IconeBarre::Symbole::sablier, dureeLisible(60.0 * (++minutes % 99))});
        benchmark::DoNotOptimize(icone.cacheKey());
    }
}
BENCHMARK(BM_IconeBarre)->Unit(benchmark::kMicrosecond);

void BM_MenuBarre(benchmark::State& etat) {
    EtatBarre e;
    e.relie = true;
    e.prenom = "Léa";
    e.resteSecondes = 2700;
    e.tirelireMin = 30;
    e.message = "C'est envoyé ! Tes parents vont répondre.";
    e.version = "1.0.0";
    QMenu menu;
    for (auto _ : etat)
        remplirMenu(menu, menuBarre(e), [](const EntreeMenu&) {});
}
BENCHMARK(BM_MenuBarre)->Unit(benchmark::kMicrosecond);

class Relie : public ActionsAccueil {
public:
    bool relie() const override { return true; }
    std::optional<Consigne> consigne() const override {
        Consigne c;
        c.rapportApplis = Interrupteur{true};
        c.historiqueSites = Interrupteur{true};
        c.filtreWeb = FiltreJSON{true, {}, {}};
        return c;
    }
    std::string prenom() const override { return "Léa"; }
    bool accordDonne() const override { return false; }
    void consentir() override {}
    bool agentActif() const override { return true; }
    void lireEtatAgent(std::function<void()>) override {}
    void autoriser() override {}
    void rejoindre(const std::string&, std::function<void(std::optional<std::string>)>) override {}
    bool installe() const override { return true; }
    bool zoneNotification() const override { return true; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override { return nullptr; }
};

void BM_AccueilCeQueVoient(benchmark::State& etat) {
    Relie actions;
    for (auto _ : etat) {
        AccueilVue vue(actions, false);
        benchmark::DoNotOptimize(vue.height());
    }
}
BENCHMARK(BM_AccueilCeQueVoient)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
