// The veil from the engine's decision to windows on every screen: `montrer` for a pause, until
// each window is exposed, then the withdrawal. Runs on $DISPLAY (an Xvfb with two monitors, see
// scripts/voile-xvfb.sh), or offscreen without one.
#include "ui/actions_figees.h"
#include "ui/fenetre_voile.h"
#include "ui/voile_qt.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QWindow>
#include <benchmark/benchmark.h>
#include <cstdlib>

namespace {

using namespace tavi;

bool exposees(const VoileQt& voile) {
    for (FenetreVoile* fenetre : voile.fenetres())
        if (!fenetre->windowHandle() || !fenetre->windowHandle()->isExposed()) return false;
    return !voile.fenetres().empty();
}

void BM_VoileJusquAuxFenetresExposees(benchmark::State& etat) {
    EtatVoile fige;
    fige.tirelireMin = 12;
    fige.maintenantMs = 1'773'500'000'000;
    VoileQt voile(std::make_unique<ActionsFigees>(fige), nullptr);
    RegleMac regle;
    regle.bloquerTout = true;
    regle.cause = "limite";
    regle.fin = 1'773'600'000'000;
    std::int64_t fin = regle.fin;
    for (auto _ : etat) {
        regle.fin = ++fin; // a new reason each time: the windows are rebuilt
        voile.montrer(MotifVoile::pause(regle));
        QElapsedTimer limite;
        limite.start();
        while (!exposees(voile) && limite.elapsed() < 5000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        etat.PauseTiming();
        voile.definirMotif(std::nullopt);
        voile.retirerFenetres();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        etat.ResumeTiming();
    }
    etat.counters["ecrans"] = static_cast<double>(QGuiApplication::screens().size());
}
BENCHMARK(BM_VoileJusquAuxFenetresExposees)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    if (!std::getenv("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
