#include "fausses_applications.h"
#include "observation/liste_applis.h"
#include "rules/programme.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <gtest/gtest.h>

using namespace tavi;

namespace {

// The process's locale for one test.
class LocaleFixe {
public:
    explicit LocaleFixe(const char* nom) : avant(std::setlocale(LC_ALL, nullptr)) {
        std::setlocale(LC_ALL, nom);
    }
    ~LocaleFixe() { std::setlocale(LC_ALL, avant.c_str()); }

private:
    std::string avant;
};

} // namespace

TEST(ListeApplis, SansDoublonNiAgentNiFondTrieeParNomSansCasse) {
    LocaleFixe locale("C.UTF-8");
    test::FaussesApplications applications;
    const std::string jeux = "public.app-category.games";
    applications.applis = {
        {"org.zebre", "zèbre", std::nullopt, false},
        {"dup", "Dup premier", std::nullopt, false},
        {"beta", "beta", std::nullopt, false},
        {"fond", "Fond", std::nullopt, true},
        {"dup", "Dup second", jeux, false},
        {Programme::identifiantAgent(), "Tavi", {}, false},
        {"alpha", "Alpha", jeux, false},
        {"mal\xff", "Mal", std::nullopt, false},
        {"casse", "Ca\xffsse", std::nullopt, false},
    };
    const auto liste = ListeApplis::lire(applications);
    EXPECT_EQ(ListeApplis::empreinte(liste),
              "alpha|Alpha|public.app-category.games;beta|beta|;casse|Ca\xef\xbf\xbdsse|;"
              "dup|Dup premier|;org.zebre|zèbre|");
    EXPECT_EQ(ListeApplis::enregistrements(liste)[0],
              (nlohmann::json{{"p", "alpha"}, {"n", "Alpha"}, {"c", jeux}}));
    EXPECT_FALSE(ListeApplis::enregistrements(liste)[1].contains("c"));
}

TEST(ListeApplis, QuatreCentsAuPlusDansUnOrdreQuiNeDependPasDuDisque) {
    test::FaussesApplications applications;
    for (int i = 449; i >= 0; --i) {
        char nom[8];
        std::snprintf(nom, sizeof nom, "n%03d", i);
        // Two applications of the same name: the identifier decides.
        applications.applis.push_back({std::string("id") + nom, i == 7 ? "n006" : nom, {}, false});
    }
    const auto liste = ListeApplis::lire(applications);
    ASSERT_EQ(liste.size(), 400u);
    EXPECT_EQ(liste.front().nom, "n000");
    EXPECT_EQ(liste.back().nom, "n399");
    std::reverse(applications.applis.begin(), applications.applis.end());
    EXPECT_EQ(ListeApplis::empreinte(ListeApplis::lire(applications)),
              ListeApplis::empreinte(liste));
}
