// What the guardian's watch of one display costs, on the display named by $DISPLAY (an Xvfb
// with openbox will do): one look (the veil among forty framed windows, and the idle time), and
// a whole worker looking once a second.
#include "gardien/regards.h"
#include "gardien/sonde_x.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace tavi;

namespace {

xcb_connection_t* bureau = nullptr;
pid_t agent = 0;

// Forty windows of the bench's own under a full-screen one of a child process, the agent.
bool preparer() {
    bureau = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(bureau)) return false;
    const xcb_screen_t* ecran = xcb_setup_roots_iterator(xcb_get_setup(bureau)).data;
    for (int i = 0; i < 40; ++i) {
        const xcb_window_t f = xcb_generate_id(bureau);
        xcb_create_window(bureau, XCB_COPY_FROM_PARENT, f, ecran->root,
                          static_cast<std::int16_t>(i * 10), 0, 200, 150, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, ecran->root_visual, 0, nullptr);
        xcb_map_window(bureau, f);
    }
    xcb_flush(bureau);
    agent = fork();
    if (agent == 0) {
        xcb_connection_t* c = xcb_connect(nullptr, nullptr);
        const xcb_window_t f = xcb_generate_id(c);
        const std::uint32_t oui = 1;
        xcb_create_window(c, XCB_COPY_FROM_PARENT, f, ecran->root, 0, 0, ecran->width_in_pixels,
                          ecran->height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          ecran->root_visual, XCB_CW_OVERRIDE_REDIRECT, &oui);
        xcb_map_window(c, f);
        xcb_flush(c);
        pause();
        _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return true;
}

AccesX acces() {
    return {std::getenv("DISPLAY"), 0, {}};
}

void UnRegard(benchmark::State& etat) {
    GardeX garde;
    auto sonde = SondeX::ouvrir(acces(), garde);
    if (!sonde) {
        etat.SkipWithError("no X server at $DISPLAY");
        return;
    }
    RegardX regard;
    for (auto _ : etat) {
        regard = sonde->voile(agent);
        regard.inactiviteS = sonde->inactiviteS();
        benchmark::DoNotOptimize(regard);
    }
    if (regard.voile != EtatVoile::present) etat.SkipWithError(("veil: " + regard.raison).c_str());
}
BENCHMARK(UnRegard)->Unit(benchmark::kMicrosecond);

// The processor time of the whole guardian side (worker and watchdog) for ten seconds of watch.
void DixSecondesDeGarde(benchmark::State& etat) {
    for (auto _ : etat) {
        rusage avant{}, apres{};
        getrusage(RUSAGE_SELF, &avant);
        auto regards = creerRegardsX();
        for (int i = 0; i < 10; ++i) { // as the guardian's loop asks
            benchmark::DoNotOptimize(regards->regarder(acces(), agent));
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        regards.reset();
        getrusage(RUSAGE_SELF, &apres);
        auto ms = [](const timeval& t) { return t.tv_sec * 1000.0 + t.tv_usec / 1000.0; };
        etat.counters["cpu_ms_par_s"] =
            (ms(apres.ru_utime) + ms(apres.ru_stime) - ms(avant.ru_utime) - ms(avant.ru_stime)) /
            10;
    }
}
BENCHMARK(DixSecondesDeGarde)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    if (!preparer()) {
        std::fprintf(stderr, "bench_regards_x: no X server at $DISPLAY\n");
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    kill(agent, SIGKILL);
    waitpid(agent, nullptr, 0);
    xcb_disconnect(bureau);
    return 0;
}
