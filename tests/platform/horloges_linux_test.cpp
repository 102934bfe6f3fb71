#include "platform/linux/horloges_linux.h"
#include "support/processus.h"

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>

using namespace tavi;

namespace {

constexpr std::int64_t borne53 = std::int64_t{1} << 53;

std::optional<std::string> bootIdDuNoyau() {
    std::ifstream fichier("/proc/sys/kernel/random/boot_id");
    if (!fichier.is_open()) return std::nullopt;
    return std::string{std::istreambuf_iterator<char>(fichier), {}};
}

} // namespace

TEST(HorlogesLinux, LIdentiteDeDemarrageVientDuNoyauStableSur53BitsEtChaqueChiffreCompte) {
    const std::string bootId = "bdc489e1-72c1-4e14-9930-407ded013ba9";
    const auto identite = identiteDemarrage(bootId);
    EXPECT_GE(identite, 0);
    EXPECT_EQ(identiteDemarrage(bootId + "\n"), identite);
    EXPECT_EQ(identiteDemarrage("BDC489E1-72C1-4E14-9930-407DED013BA9"), identite);
    // The first and last digits count too.
    EXPECT_NE(identiteDemarrage("bdc489e1-72c1-4e14-9930-407ded013ba8"), identite);
    EXPECT_NE(identiteDemarrage("cdc489e1-72c1-4e14-9930-407ded013ba9"), identite);
    EXPECT_LT(identiteDemarrage("ffffffff-ffff-ffff-0000-000000000000"), borne53);
    for (const char* malForme :
         {"", "bdc489e1-72c1-4e14-9930-407ded013bg9", "bdc489e1+72c1-4e14-9930-407ded013ba9"})
        EXPECT_EQ(identiteDemarrage(malForme), -1) << malForme;

    auto duNoyau = bootIdDuNoyau();
    if (!duNoyau) GTEST_SKIP() << "/proc/sys/kernel/random/boot_id cannot be read here";
    EXPECT_EQ(HorlogesLinux().demarrage(), identiteDemarrage(*duNoyau));
    EXPECT_EQ(HorlogesLinux().demarrage(), HorlogesLinux().demarrage());
}

TEST(HorlogesLinux, LesHorlogesDonnentDesMillisecondesEtLaMonotoneNeReculeJamais) {
    HorlogesLinux horloges;
    const auto murale = horloges.muraleMs();
    const auto systeme = std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
    EXPECT_LT(std::abs(murale - systeme), 1000);

    const auto debut = horloges.monotoniqueMs();
    std::int64_t precedente = debut;
    for (int i = 0; i < 100'000; ++i) {
        const auto lue = horloges.monotoniqueMs();
        ASSERT_GE(lue, precedente);
        precedente = lue;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto ecoule = horloges.monotoniqueMs() - debut;
    EXPECT_GE(ecoule, 20);
    EXPECT_LT(ecoule, 20'000);
}

// Suspend cannot be made here, but a time namespace can put CLOCK_BOOTTIME (which counts
// suspend) ahead of CLOCK_MONOTONIC (which does not): the agent's clock must follow the first.
TEST(HorlogesLinux, LaMonotoneCompteAussiLeTempsDeVeille) {
    constexpr std::int64_t avanceS = 100'000;
    const char* unshare = "/usr/bin/unshare";
    if (!std::filesystem::exists(unshare)) GTEST_SKIP() << unshare << " is not installed";
    auto bootMs = [] {
        timespec t{};
        clock_gettime(CLOCK_BOOTTIME, &t);
        return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1'000'000;
    };
    const auto avant = bootMs();
    const auto sonde = test::executer(
        {unshare, "--time", "--boottime", std::to_string(avanceS), TAVI_HORLOGES_ESSAI});
    const auto apres = bootMs();
    if (sonde.statut != 0) GTEST_SKIP() << "no time namespace here: " << sonde.err;
    const std::int64_t lue = std::stoll(sonde.out);
    EXPECT_GE(lue, avant + avanceS * 1000);
    EXPECT_LE(lue, apres + avanceS * 1000);
}
