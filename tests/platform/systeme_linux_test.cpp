#include "platform/linux/systeme_linux.h"

#include <gtest/gtest.h>

using namespace tavi;

TEST(SystemeLinux, SeDitLinuxEtSaDescriptionVientDOsReleaseAvecSesReplis) {
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
    EXPECT_EQ(SystemeLinux().plateforme(), "linux");
}
