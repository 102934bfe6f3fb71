#include "commun/dossier_prive.h"
#include "platform/linux/dossiers_linux.h"
#include "platform/linux/horloges_linux.h"
#include "platform/linux/systeme_linux.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/variable.h"

#include <chrono>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <unistd.h>

using namespace tavi;
using test::Variable;

TEST(HorlogesLinux, LIdentiteDeDemarrageVientDuNoyauEtLHeureMuraleEstEnMillisecondes) {
    const std::string bootId = "bdc489e1-72c1-4e14-9930-407ded013ba9";
    const auto identite = identiteDemarrage(bootId);
    EXPECT_EQ(identiteDemarrage("BDC489E1-72C1-4E14-9930-407DED013BA9\n"), identite);
    // The first and last digits count too.
    EXPECT_NE(identiteDemarrage("bdc489e1-72c1-4e14-9930-407ded013ba8"), identite);
    EXPECT_LT(identiteDemarrage("ffffffff-ffff-ffff-0000-000000000000"), std::int64_t{1} << 53);
    for (const char* malForme :
         {"", "bdc489e1-72c1-4e14-9930-407ded013bg9", "bdc489e1+72c1-4e14-9930-407ded013ba9"})
        EXPECT_EQ(identiteDemarrage(malForme), -1) << malForme;

    // The wall clock counts milliseconds since the epoch, as the server's does.
    const auto systeme = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    EXPECT_LT(std::abs(HorlogesLinux().muraleMs() - systeme.count()), 1000);

    const auto duNoyau = test::lireFichier("/proc/sys/kernel/random/boot_id");
    if (duNoyau.empty()) GTEST_SKIP() << "/proc/sys/kernel/random/boot_id cannot be read here";
    EXPECT_EQ(HorlogesLinux().demarrage(), identiteDemarrage(duNoyau));
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

TEST(Dossiers, LEtatSuitXdgStateHomeAbsoluSinonLaMaisonSinonLaBaseDesComptesEt0700) {
    // Private, even when an older version opened it; a file in its place is an error.
    test::DossierTemporaire dossier;
    const auto etat = dossier / "state" / "tavi-home";
    ASSERT_EQ(creerDossierPrive(etat), std::nullopt);
    std::filesystem::permissions(etat, std::filesystem::perms(0755));
    ASSERT_EQ(creerDossierPrive(etat), std::nullopt);
    EXPECT_EQ(test::modeDe(etat), 0700u);
    test::ecrireFichier(dossier / "fichier", "x");
    EXPECT_NE(creerDossierPrive(dossier / "fichier"), std::nullopt);

    Variable home("HOME", "/home/lea");
    {
        Variable xdg("XDG_STATE_HOME", "/var/etat");
        EXPECT_EQ(Dossiers::reglages(), "/var/etat/tavi-home/reglages.sqlite");
    }
    Variable relatif("XDG_STATE_HOME", "etat/relatif");
    EXPECT_EQ(Dossiers::etat(), "/home/lea/.local/state/tavi-home");

    const passwd* compte = getpwuid(getuid());
    if (!compte || !compte->pw_dir || compte->pw_dir[0] != '/')
        GTEST_SKIP() << "this user has no absolute home folder in the password database";
    for (const char* inutilisable : {"relatif", static_cast<const char*>(nullptr)}) {
        Variable sansHome("HOME", inutilisable);
        EXPECT_EQ(Dossiers::etat(), std::string(compte->pw_dir) + "/.local/state/tavi-home");
    }
}

TEST(SystemeLinux, LaDescriptionVientDOsReleaseAvecSesReplis) {
    EXPECT_EQ(descriptionOsRelease("# written by hand\n"
                                   "  PRETTY_NAME='Fedora Linux 39 (Workstation \"Edition\")'  \n"),
              "Fedora Linux 39 (Workstation \"Edition\")");
    EXPECT_EQ(descriptionOsRelease("PRETTY_NAME=\"Arch \\\"rolling\\\" \\\\ \\$HOME\"\n"),
              "Arch \"rolling\" \\ $HOME");
    // No PRETTY_NAME, or an empty one: NAME and VERSION_ID, or NAME alone.
    EXPECT_EQ(descriptionOsRelease("NAME=Alpine\nVERSION_ID=3.19.1\n"), "Alpine 3.19.1");
    EXPECT_EQ(descriptionOsRelease("PRETTY_NAME=\"\"\nNAME=\"Arch Linux\"\r\n"), "Arch Linux");
    EXPECT_EQ(descriptionOsRelease("VERSION_ID=12\nID=debian\n"), std::nullopt);
}
