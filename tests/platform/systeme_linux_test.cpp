#include "platform/linux/systeme_linux.h"

#include <climits>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <unistd.h>

using namespace tavi;

TEST(SystemeLinux, LaDescriptionVientDOsReleaseAvecSesReplis) {
    EXPECT_EQ(descriptionOsRelease("NAME=\"Debian GNU/Linux\"\n"
                                   "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
                                   "VERSION_ID=\"12\"\n"),
              "Debian GNU/Linux 12 (bookworm)");
    EXPECT_EQ(descriptionOsRelease("# written by hand\n"
                                   "  PRETTY_NAME='Fedora Linux 39 (Workstation \"Edition\")'  \n"),
              "Fedora Linux 39 (Workstation \"Edition\")");
    EXPECT_EQ(descriptionOsRelease("PRETTY_NAME=\"Arch \\\"rolling\\\" \\\\ \\$HOME\"\n"),
              "Arch \"rolling\" \\ $HOME");
    // No PRETTY_NAME, or an empty one: NAME and VERSION_ID, or NAME alone.
    EXPECT_EQ(descriptionOsRelease("NAME=Alpine\nVERSION_ID=3.19.1\n"), "Alpine 3.19.1");
    EXPECT_EQ(descriptionOsRelease("PRETTY_NAME=\"\"\nNAME=\"Arch Linux\"\r\n"), "Arch Linux");
    EXPECT_EQ(descriptionOsRelease("VERSION_ID=12\nID=debian\n"), std::nullopt);
    EXPECT_EQ(descriptionOsRelease(""), std::nullopt);
    EXPECT_EQ(descriptionOsRelease("this is not an os-release file"), std::nullopt);
}

TEST(SystemeLinux, DecritCetteMachine) {
    SystemeLinux systeme;
    EXPECT_EQ(systeme.plateforme(), "linux");

    std::ifstream osRelease("/etc/os-release");
    const std::string texte{std::istreambuf_iterator<char>(osRelease), {}};
    if (auto attendue = descriptionOsRelease(texte))
        EXPECT_EQ(systeme.description(), *attendue);
    else
        EXPECT_TRUE(systeme.description().starts_with("Linux")) << systeme.description();

    char hote[HOST_NAME_MAX + 1] = {};
    ASSERT_EQ(gethostname(hote, sizeof hote - 1), 0);
    const std::string nom(hote);
    if (nom.empty() || nom == "localhost")
        EXPECT_EQ(systeme.nomOrdinateur(), std::nullopt);
    else
        EXPECT_EQ(systeme.nomOrdinateur(), nom);
}
