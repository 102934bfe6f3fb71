// What the engine asks the X server every tick, on the display named by $DISPLAY (an Xvfb with
// openbox will do): the front application, from memory and read afresh, and the idle time.
#include "platform/linux/bureau_x11.h"
#include "platform/linux/ecran_x11.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

using namespace tavi;

namespace {

// The loop is never run here: each call reads the waiting events itself.
class BoucleInerte : public Boucle {
    struct Rien : Minuterie, Abonnement {};

public:
    std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds, Tache) override {
        return std::make_unique<Rien>();
    }
    void plusTard(std::chrono::milliseconds, Tache) override {}
    std::unique_ptr<Abonnement> surveiller(int, Tache) override { return std::make_unique<Rien>(); }
    void poster(Tache) override {}
    void enArrierePlan(std::function<Tache()>, std::function<void(const std::string&)>) override {}
};

BoucleInerte boucle;
std::shared_ptr<AffichageX11> affichage;

std::optional<IdentiteAppli> resoudre(const IndicesFenetre& indices) {
    return IdentiteAppli{"org.exemple." + indices.classe, indices.classe, std::nullopt};
}

// Ten windows of the bench's own, the last one asked to the front.
void preparerFenetres(Display* client) {
    const Window racine = DefaultRootWindow(client);
    Window w = 0;
    for (long pid = 5000; pid < 5010; ++pid) {
        w = XCreateSimpleWindow(client, racine, 0, 0, 50, 50, 0, 0, 0);
        XChangeProperty(client, w, XInternAtom(client, "_NET_WM_PID", False), XA_CARDINAL, 32,
                        PropModeReplace, reinterpret_cast<unsigned char*>(&pid), 1);
        XChangeProperty(client, w, XA_WM_CLASS, XA_STRING, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>("banc\0Banc"), 10);
        XMapWindow(client, w);
    }
    XSync(client, False);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    XEvent e{};
    e.xclient = {ClientMessage,
                 0,
                 True,
                 client,
                 w,
                 XInternAtom(client, "_NET_ACTIVE_WINDOW", False),
                 32,
                 {}};
    e.xclient.data.l[0] = 2;
    XSendEvent(client, racine, False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
    XSync(client, False);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
}

void premierPlanEnMemoire(benchmark::State& etat) {
    BureauX11 bureau(affichage, resoudre);
    etat.counters["observable"] = bureau.premierPlanObservable();
    for (auto _ : etat)
        benchmark::DoNotOptimize(bureau.applicationAuPremierPlan());
}
BENCHMARK(premierPlanEnMemoire);

// A fresh desktop object each time: the manager's check and the front window's hints are read
// again, as after a change of focus.
void premierPlanRelu(benchmark::State& etat) {
    for (auto _ : etat) {
        BureauX11 bureau(affichage, resoudre);
        benchmark::DoNotOptimize(bureau.applicationAuPremierPlan());
    }
}
BENCHMARK(premierPlanRelu);

void applicationsOuvertes(benchmark::State& etat) {
    BureauX11 bureau(affichage, resoudre);
    etat.counters["applications"] = static_cast<double>(bureau.applicationsOuvertes().size());
    for (auto _ : etat)
        benchmark::DoNotOptimize(bureau.applicationsOuvertes());
}
BENCHMARK(applicationsOuvertes);

void secondesInactivite(benchmark::State& etat) {
    EcranX11 ecran(affichage);
    for (auto _ : etat)
        benchmark::DoNotOptimize(ecran.secondesInactivite());
}
BENCHMARK(secondesInactivite);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const char* nom = std::getenv("DISPLAY");
    Display* client = nom ? XOpenDisplay(nom) : nullptr;
    affichage = client ? AffichageX11::ouvrir(boucle) : nullptr;
    if (!affichage) {
        std::puts("bench_x11: no X server at $DISPLAY; run it under Xvfb with openbox");
        return 0;
    }
    preparerFenetres(client);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    affichage.reset();
    XCloseDisplay(client);
    return 0;
}
