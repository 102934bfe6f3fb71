#include "fausse_boucle.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tavi;
using namespace std::chrono_literals;

// What the engine's tests will lean on: time order with ties in the order scheduled, clocks in
// step with the loop, a timer that silences itself, and background work that waits for the test.
TEST(FausseBoucle, LeTempsVirtuelDerouleToutDansLOrdreEtLArrierePlanAttendLeTest) {
    FausseBoucle boucle;
    std::int64_t tempsDesHorloges = 0;
    boucle.quandLeTempsPasse = [&](std::int64_t ms) { tempsDesHorloges += ms; };
    std::vector<std::string> journal;
    auto noter = [&](const std::string& quoi) {
        journal.push_back(quoi + "@" + std::to_string(boucle.maintenantMs()));
        EXPECT_EQ(tempsDesHorloges, boucle.maintenantMs()) << "the clocks lag behind the loop";
    };

    std::unique_ptr<Minuterie> tic;
    tic = boucle.repeter(1000ms, [&] {
        noter("tic");
        if (boucle.maintenantMs() == 2000) tic.reset();
    });
    boucle.plusTard(1500ms, [&] {
        noter("B");
        boucle.plusTard(100ms, [&] { noter("C, scheduled by B"); });
        boucle.poster([&] { noter("posted by B"); });
    });
    // Due with the first tick, scheduled after it: runs after it.
    boucle.plusTard(1000ms, [&] { noter("A"); });
    boucle.poster([&] { noter("posted"); });
    boucle.enArrierePlan([&]() -> Boucle::Tache {
        noter("work");
        return [&] { noter("continuation"); };
    });

    boucle.avancer(3500ms);
    EXPECT_EQ(journal,
              (std::vector<std::string>{"posted@0", "tic@1000", "A@1000", "B@1500",
                                        "posted by B@1500", "C, scheduled by B@1600", "tic@2000"}));
    EXPECT_EQ(tempsDesHorloges, 3500);
    EXPECT_EQ(boucle.terminerArrierePlan(), 1u);
    EXPECT_EQ(journal.back(), "continuation@3500");
}
