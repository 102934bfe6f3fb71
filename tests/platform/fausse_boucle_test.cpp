#include "fausse_boucle.h"

#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

using namespace tavi;
using namespace std::chrono_literals;

TEST(FausseBoucle, AvancerDerouleMinuteriesEtDelaisDansLOrdreDuTemps) {
    FausseBoucle boucle;
    std::int64_t tempsDesHorloges = 0;
    boucle.quandLeTempsPasse = [&](std::int64_t ms) { tempsDesHorloges += ms; };
    std::vector<std::string> journal;
    auto noter = [&](const std::string& quoi) {
        journal.push_back(quoi + "@" + std::to_string(boucle.maintenantMs()));
        EXPECT_EQ(tempsDesHorloges, boucle.maintenantMs()) << "the clocks lag behind the loop";
    };

    auto tic = boucle.repeter(1000ms, [&] { noter("tic"); });
    boucle.plusTard(2500ms, [&] {
        noter("B");
        boucle.plusTard(100ms, [&] { noter("C, scheduled by B"); });
        boucle.poster([&] { noter("posted by B"); });
    });
    // Due with the first tick, scheduled after it: runs after it.
    boucle.plusTard(1000ms, [&] { noter("A"); });
    boucle.plusTard(0ms, [&] { noter("no delay"); });
    boucle.poster([&] { noter("posted"); });
    boucle.plusTard(3001ms, [&] { noter("too late"); });

    boucle.avancer(3000ms);
    EXPECT_EQ(journal, (std::vector<std::string>{"no delay@0", "posted@0", "tic@1000", "A@1000",
                                                 "tic@2000", "B@2500", "posted by B@2500",
                                                 "C, scheduled by B@2600", "tic@3000"}));
    EXPECT_EQ(boucle.maintenantMs(), 3000);
    EXPECT_EQ(tempsDesHorloges, 3000);

    journal.clear();
    boucle.avancer(1ms);
    EXPECT_EQ(journal, (std::vector<std::string>{"too late@3001"}));
    EXPECT_THROW(boucle.avancer(-1ms), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(boucle.repeter(0ms, [] {})), std::invalid_argument);
}

TEST(FausseBoucle, UneJourneeDeTicsPasseEnUnInstantEtUneMinuterieDetruiteSeTait) {
    FausseBoucle boucle;
    int tics = 0;
    auto parSeconde = boucle.repeter(1s, [&] { ++tics; });
    int jusquATrois = 0;
    std::unique_ptr<Minuterie> seDetruit;
    seDetruit = boucle.repeter(10s, [&] {
        if (++jusquATrois == 3) seDetruit.reset();
    });

    const auto debut = std::chrono::steady_clock::now();
    boucle.avancer(24h);
    EXPECT_LT(std::chrono::steady_clock::now() - debut, 2s);
    EXPECT_EQ(tics, 86'400);
    EXPECT_EQ(jusquATrois, 3);

    parSeconde.reset();
    boucle.avancer(1h);
    EXPECT_EQ(tics, 86'400);

    // A handle may outlive its loop.
    auto survivante = std::make_unique<FausseBoucle>();
    auto orpheline = survivante->repeter(1s, [] {});
    survivante.reset();
    orpheline.reset();
}

TEST(FausseBoucle, LArrierePlanAttendQueLeTestLeTermineEtSaSuiteRevientEnsuite) {
    FausseBoucle boucle;
    std::vector<std::string> journal;
    boucle.enArrierePlan([&]() -> Boucle::Tache {
        journal.push_back("work 1");
        return [&] {
            journal.push_back("continuation 1");
            // Work started by a continuation is in flight too, and is finished in the same call.
            boucle.executer<int>([&] { return 42; },
                                 [&](int n) { journal.push_back("result " + std::to_string(n)); });
        };
    });
    boucle.enArrierePlan([&]() -> Boucle::Tache {
        journal.push_back("work 2, nothing to resume");
        return {};
    });

    boucle.avancer(1h);
    EXPECT_TRUE(journal.empty()) << "background work ran before the test finished it";
    EXPECT_EQ(boucle.arrierePlanEnAttente(), 2u);

    EXPECT_EQ(boucle.terminerArrierePlan(), 3u);
    EXPECT_EQ(journal, (std::vector<std::string>{"work 1", "continuation 1",
                                                 "work 2, nothing to resume", "result 42"}));
    EXPECT_EQ(boucle.arrierePlanEnAttente(), 0u);
    EXPECT_EQ(boucle.terminerArrierePlan(), 0u);
}
