#include "fausse_boucle.h"
#include "fausse_navigation.h"
#include "fausses_applications.h"
#include "observation/file_navigateurs.h"
#include "observation/navigateurs_installes.h"
#include "rules/programme.h"

#include <gtest/gtest.h>

using namespace tavi;
using namespace std::chrono_literals;
using Resultats = FileNavigateurs::Resultats;

// Real worker thread, virtual time on the main side.
TEST(FileNavigateurs, UneLectureALaFoisEtTroisSecondesAuPlusParNavigateur) {
    test::FausseBoucle boucle;
    test::FausseNavigation navigation;
    navigation.reponses["firefox"] = Lecture::url("https://exemple.fr/");
    navigation.bloques.insert("chromium");
    navigation.bloque.retenir();
    FileNavigateurs file(boucle, navigation);
    std::vector<Resultats> recus;
    const auto noter = [&](Resultats r) { recus.push_back(std::move(r)); };

    ASSERT_TRUE(file.lire({"firefox", "chromium", "org.gnome.Epiphany"}, noter));
    EXPECT_FALSE(file.lire({"firefox"}, noter));
    navigation.attendreAppels(2); // firefox's reading is posted before chromium is asked
    boucle.avancer(2999ms);
    EXPECT_TRUE(recus.empty());
    boucle.avancer(1ms);
    ASSERT_EQ(recus.size(), 1u);
    EXPECT_EQ(recus[0], (Resultats{{"firefox", Lecture::url("https://exemple.fr/")},
                                   {"chromium", Lecture::illisible()},
                                   {"org.gnome.Epiphany", Lecture::illisible()}}));

    // Busy until the stuck browser answers; what it says then is too late, and the browsers
    // after it are not read at all.
    EXPECT_FALSE(file.lire({"firefox"}, noter));
    navigation.bloque.relacher();
    ASSERT_TRUE(boucle.attendre([&] { return !file.occupe(); }));
    EXPECT_EQ(recus.size(), 1u);
    file.vider("firefox");
    ASSERT_TRUE(file.lire({"firefox"}, noter));
    ASSERT_TRUE(boucle.attendre([&] { return recus.size() == 2; }));
    EXPECT_EQ(recus[1], (Resultats{{"firefox", Lecture::url("https://exemple.fr/")}}));
    EXPECT_EQ(navigation.attendreAppels(0),
              (std::vector<std::string>{"lire firefox", "lire chromium", "vider firefox",
                                        "lire firefox"}));
}

TEST(FileNavigateurs, AucunResultatNArriveApresLaDestruction) {
    test::FausseBoucle boucle;
    test::FausseNavigation navigation;
    int appels = 0;
    {
        FileNavigateurs file(boucle, navigation);
        ASSERT_TRUE(file.lire({"firefox"}, [&](Resultats) { ++appels; }));
        navigation.attendreAppels(1);
    }
    boucle.avancer(10s);
    EXPECT_EQ(appels, 0);
}

TEST(NavigateursInstalles, RepondDeMemoireEtRafraichitEnFondToutesLesDixMinutes) {
    test::FausseBoucle boucle;
    test::FaussesApplications applications;
    applications.ouvrentLeWeb = {"org.qutebrowser.qutebrowser", Programme::identifiantAgent()};
    std::int64_t murale = 1'795'000'000'000;
    auto cache =
        std::make_unique<NavigateursInstalles>(boucle, applications, [&] { return murale; });

    EXPECT_TRUE(cache->installes().count("firefox"));
    EXPECT_FALSE(cache->installes().count("org.qutebrowser.qutebrowser"));
    EXPECT_EQ(boucle.terminerArrierePlan(), 1u);
    EXPECT_TRUE(cache->installes().count("org.qutebrowser.qutebrowser"));
    EXPECT_TRUE(cache->installes().count("firefox"));
    EXPECT_FALSE(cache->installes().count(Programme::identifiantAgent()));

    murale += 599'999;
    cache->installes();
    EXPECT_EQ(boucle.terminerArrierePlan(), 0u);
    murale += 1;
    cache->installes();
    EXPECT_EQ(boucle.terminerArrierePlan(), 1u);
    murale -= 1;
    cache->installes();
    EXPECT_EQ(boucle.terminerArrierePlan(), 1u);

    // A refresh still in flight when the cache goes lands nowhere.
    murale += 600'000;
    cache->installes();
    cache.reset();
    EXPECT_EQ(boucle.terminerArrierePlan(), 1u);
    EXPECT_EQ(applications.recherchesNavigateurs, 4);
}
