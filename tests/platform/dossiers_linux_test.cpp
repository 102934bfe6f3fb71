#include "platform/linux/dossiers_linux.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <pwd.h>
#include <string>
#include <unistd.h>

using namespace tavi;

namespace {

// Sets (or, with nullptr, removes) an environment variable for one scope.
class Variable {
public:
    Variable(const char* variable, const char* valeur) : nom(variable) {
        if (const char* ancienne = std::getenv(nom)) avant = ancienne;
        valeur ? setenv(nom, valeur, 1) : unsetenv(nom);
    }
    ~Variable() { avant ? setenv(nom, avant->c_str(), 1) : unsetenv(nom); }

private:
    const char* nom;
    std::optional<std::string> avant;
};

} // namespace

TEST(Dossiers, LEtatSuitXdgStateHomeAbsoluSinonLaMaisonSinonLaBaseDesComptes) {
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
