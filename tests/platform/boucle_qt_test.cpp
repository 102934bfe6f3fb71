#include "platform/qt/boucle_qt.h"
#include "support/application_qt.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace tavi;
using namespace std::chrono_literals;
using test::attendreQue;

namespace {

// Holds a background thread until `condition` holds, at most `limite`.
template <class Condition>
bool retenir(Condition condition, std::chrono::milliseconds limite = 10s) {
    const auto fin = std::chrono::steady_clock::now() + limite;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > fin) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

} // namespace

TEST(BoucleQt, MinuteriesPostesEtDelaisDansLOrdreEtQuitterRendSonStatut) {
    BoucleQt boucle;
    int tics = 0;
    std::unique_ptr<Minuterie> minuterie;
    minuterie = boucle.repeter(10ms, [&] {
        if (++tics == 5) minuterie.reset();
    });
    int autres = 0;
    auto autre = boucle.repeter(10ms, [&] { ++autres; });

    ASSERT_TRUE(attendreQue([&] { return tics == 5 && autres >= 5; }));
    autre.reset();
    const int autresALArret = autres;
    attendreQue([] { return false; }, 100ms);
    EXPECT_EQ(tics, 5);
    EXPECT_EQ(autres, autresALArret);
    EXPECT_THROW(static_cast<void>(boucle.repeter(0ms, [] {})), std::invalid_argument);

    // Posts and delays in order; quitting returns its status.
    std::vector<std::string> ordre;
    boucle.plusTard(40ms, [&] { ordre.push_back("40 ms"); });
    // No delay is a post, in turn with the others.
    boucle.plusTard(0ms, [&] { ordre.push_back("at once"); });
    boucle.poster([&] { ordre.push_back("posted"); });
    boucle.plusTard(80ms, [&] { boucle.quitter(3); });
    // Asked before the loop runs, from another thread: not lost.
    std::thread([&] { boucle.quitter(7); }).join();

    EXPECT_EQ(boucle.executer(), 7);
    EXPECT_EQ(boucle.executer(), 3);
    EXPECT_EQ(ordre, (std::vector<std::string>{"at once", "posted", "40 ms"}));
}

TEST(BoucleQt, LArrierePlanTourneAilleursEtSaSuiteEtSesLiberationsSurLeFilPrincipal) {
    BoucleQt boucle;
    const auto principal = std::this_thread::get_id();
    std::atomic<bool> travailAilleurs = false;
    // For each continuation run and each capture released: on the main thread?
    std::vector<bool> ici;
    auto temoin = [&] {
        return std::shared_ptr<int>(new int, [&, principal](int* p) {
            ici.push_back(std::this_thread::get_id() == principal);
            delete p;
        });
    };
    boucle.enArrierePlan(
        [&, t = temoin(), suite = temoin()]() -> Boucle::Tache {
            travailAilleurs = std::this_thread::get_id() != principal;
            return [&, suite] { ici.push_back(std::this_thread::get_id() == principal); };
        },
        {});
    // Work that throws is logged and its failure delivered on the main thread, so that
    // whoever waits for it is never left waiting; the loop goes on.
    testing::internal::CaptureStderr();
    std::string raison;
    boucle.enArrierePlan(
        [t = temoin()]() -> Boucle::Tache { throw std::runtime_error("curl exploded"); },
        [&, e = temoin()](const std::string& r) {
            raison = r;
            ici.push_back(std::this_thread::get_id() == principal);
        });
    ASSERT_TRUE(attendreQue([&] { return ici.size() == 6; }));
    EXPECT_TRUE(travailAilleurs);
    EXPECT_EQ(ici, std::vector<bool>(6, true));
    EXPECT_EQ(raison, "curl exploded");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "background work ended on an exception: curl exploded\n");
}

TEST(BoucleQt, AucuneSuiteNeTourneUneFoisLaBouclePartie) {
    std::atomic<bool> partie = false;
    std::atomic<bool> lache = false;
    std::atomic<int> enCours = 0;
    std::atomic<int> commencesApres = 0;
    std::atomic<bool> rapideFini = false;
    std::atomic<int> lachesFinis = 0;
    int suites = 0;
    auto boucle = std::make_unique<BoucleQt>(300ms);

    // Done before the loop goes: its continuation waits in the queue.
    boucle->enArrierePlan(
        [&]() -> Boucle::Tache {
            rapideFini = true;
            return [&] { ++suites; };
        },
        {});
    ASSERT_TRUE(retenir([&] { return rapideFini.load(); }));
    // Finishes while the loop waits for it.
    boucle->enArrierePlan(
        [&]() -> Boucle::Tache {
            ++enCours;
            retenir([&] { return partie.load(); });
            std::this_thread::sleep_for(50ms);
            return [&] { ++suites; };
        },
        {});
    // Outlast the wait, and are left behind; the rest has not started when the loop goes.
    for (int i = 0; i < 3 * BoucleQt::filsArrierePlan; ++i)
        boucle->enArrierePlan(
            [&]() -> Boucle::Tache {
                ++enCours;
                commencesApres += partie.load();
                retenir([&] { return lache.load(); });
                ++lachesFinis;
                return [&] { ++suites; };
            },
            {});
    boucle->poster([&] { ++suites; });
    // All of them in flight at once, as requests to a server that does not answer: a smaller
    // pool keeps the rest queued until the first give up.
    ASSERT_TRUE(retenir([&] { return enCours == BoucleQt::filsArrierePlan; }, 5s));

    partie = true;
    boucle.reset(); // hangs if the end waits for the work held below
    lache = true;
    // One thread took the work that finished during the wait; the others, this.
    ASSERT_TRUE(attendreQue([&] { return lachesFinis == BoucleQt::filsArrierePlan - 1; }));
    attendreQue([] { return false; }, 200ms);
    EXPECT_EQ(suites, 0);
    EXPECT_EQ(commencesApres, 0);
}
