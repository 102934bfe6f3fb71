#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tuple>

namespace tavi {
namespace {

using test::executer;
using test::Sortie;

Sortie tavi(std::vector<std::string> arguments, const std::string& entree = "",
            const std::string& fuseau = "Europe/Paris") {
    arguments.insert(arguments.begin(), TAVI_BINAIRE);
    return executer(arguments, entree, {{"TZ", fuseau}, {"LANGUAGE", "fr"}});
}

std::size_t lignes(const std::string& texte) {
    return static_cast<std::size_t>(std::count(texte.begin(), texte.end(), '\n'));
}

// 2026-10-25T12:00+01:00: the day of the autumn change in Paris, 25 hours long.
const std::string midi = "1792926000000";
const std::string limite = R"({"limite_jour_min": 30, "reste_jour_min": 10})";

TEST(TaviRegle, ImprimeLaRegleEnVigueurSurUneLigneDepuisLEntreeOuUnFichier) {
    Sortie s = tavi({"regle", "--maintenant", midi, "--utilise-jour", "1800", "-"}, limite);
    ASSERT_EQ(s.statut, 0) << s.err;
    EXPECT_EQ(s.out, R"({"bloquer_tout":true,"bloquees":[],"familles":[],"cause":"limite",)"
                     R"("titre":"Limite du jour","titre_affiche":"Limite du jour",)"
                     R"("fin":1792965600000})"
                     "\n");
    EXPECT_EQ(s.err, "");
    EXPECT_EQ(tavi({"regle", "--maintenant", midi, "--utilise-jour", "1800",
                    "--utilise-depuis-consigne", "599"},
                   limite)
                  .out,
              "null\n");
    // The local day follows TZ: in Tokyo the same instant is in a day ending elsewhere.
    s = tavi({"regle", "--maintenant=" + midi, "--utilise-jour=1800"}, limite, "Asia/Tokyo");
    EXPECT_EQ(nlohmann::json::parse(s.out)["fin"], 1792940400000);
    const std::string exemple = TAVI_SOURCES "/exemples/consigne.json";
    s = tavi({"regle", "--maintenant", "1795465800000", exemple});
    EXPECT_EQ(nlohmann::json::parse(s.out)["titre_affiche"], "Dodo") << s.err;
    s = tavi({"consigne", exemple});
    EXPECT_EQ(lignes(s.out), 1u);
    EXPECT_EQ(tavi({"consigne"}, s.out).out, s.out) << "its own output decodes to itself";
}

TEST(TaviSieste, DonneLaSiesteDUneApplicationAvecLUsageNomme) {
    const std::string c = R"({"mac": {"limites": [{"id": "j", "nom": "Jeux", "minutes": 10,
                               "applis": ["steam", "mc"]}]}})";
    const std::vector<std::string> sieste = {"sieste", "--maintenant", midi, "--appli", "mc"};
    auto avec = [&sieste](std::vector<std::string> usage) {
        usage.insert(usage.begin(), sieste.begin(), sieste.end());
        return usage;
    };
    Sortie s = tavi(avec({"--usage", "steam=300", "--usage", "mc=300"}), c);
    ASSERT_EQ(s.statut, 0) << s.err;
    EXPECT_EQ(nlohmann::json::parse(s.out)["titre_affiche"], "Limite : Jeux");
    EXPECT_EQ(tavi(avec({"--usage", "steam=599"}), c).out, "null\n")
        << "unnamed applications count 0";
}

TEST(TaviSite, JugeLeDomaineSousLaConsigneDonneeOuUneConsigneVide) {
    const std::string filtre = R"({"filtre_web": {"domaines_bloques": ["exemple.fr"]}})";
    EXPECT_EQ(tavi({"site", "https://WWW.Video.Exemple.FR/x", "-"}, filtre).out,
              R"({"domaine":"video.exemple.fr","bloque":true,"filtre_utile":true})"
              "\n");
    // Without a file the rule set is empty, and standard input is not read.
    EXPECT_EQ(tavi({"site", "https://video.exemple.fr"}, filtre).out,
              R"({"domaine":"video.exemple.fr","bloque":false,"filtre_utile":false})"
              "\n");
    EXPECT_EQ(tavi({"site", "about:blank"}).out,
              R"({"domaine":null,"bloque":false,"filtre_utile":false})"
              "\n");
}

TEST(TaviApplis, ImprimeLesApplicationsDuMenuPuisLeurEmpreinte) {
    test::DossierTemporaire xdg;
    std::filesystem::create_directories(xdg / "maison/applications");
    std::ofstream(xdg / "maison/applications/org.exemple.Zebre.desktop")
        << "[Desktop Entry]\nType=Application\nName=zèbre\nExec=zebre\nCategories=Game;\n";
    std::ofstream(xdg / "maison/applications/alpha.desktop")
        << "[Desktop Entry]\nType=Application\nName=Alpha\nExec=alpha\n";
    std::ofstream(xdg / "maison/applications/cache.desktop")
        << "[Desktop Entry]\nType=Application\nName=Caché\nExec=c\nNoDisplay=true\n";
    const auto s = executer({TAVI_BINAIRE, "applis"}, "",
                            {{"XDG_DATA_HOME", (xdg / "maison").string()},
                             {"XDG_DATA_DIRS", (xdg / "vide").string()},
                             {"HOME", xdg.chemin().string()}});
    ASSERT_EQ(s.statut, 0) << s.err;
    EXPECT_EQ(s.out,
              R"({"applis_installees":[{"n":"Alpha","p":"alpha"},)"
              R"({"c":"public.app-category.games","n":"zèbre","p":"org.exemple.Zebre"}]})"
              "\n"
              R"({"empreinte":"alpha|Alpha|;org.exemple.Zebre|zèbre|public.app-category.games"})"
              "\n");
}

TEST(TaviActivite, SansAffichageNiBusRepondEtDitCeQuiNeSObservePas) {
    const auto s = executer({TAVI_BINAIRE, "activite"}, "",
                            {{"DISPLAY", ""},
                             {"WAYLAND_DISPLAY", ""},
                             {"XDG_SESSION_TYPE", ""},
                             {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nulle/part"},
                             {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nulle/part"}});
    ASSERT_EQ(s.statut, 0) << s.err;
    const auto etat = nlohmann::json::parse(s.out);
    EXPECT_EQ(lignes(s.out), 1u);
    // Nothing tells the idle time: use is counted, and the reason says why.
    EXPECT_EQ(etat["utilise"], true);
    EXPECT_EQ(etat["raison"], "inactivite_inconnue");
    EXPECT_TRUE(etat["appli"].is_null());
    EXPECT_EQ(etat["inobservable"][0], "application_au_premier_plan");
    EXPECT_NE(s.err.find("without a share per application"), std::string::npos) << s.err;
}

TEST(Tavi, UneConsigneIllisibleNImprimeRienEtDitPourquoiSurUneLigne) {
    const std::string illisible = R"({"programme": [{"debut_ms": "hier", "fin_ms": 1}]})";
    const std::vector<std::tuple<std::vector<std::string>, std::string, std::string>> cas = {
        {{"consigne"}, illisible, "programme[0].debut_ms"},
        {{"sieste", "--maintenant", "0", "--appli", "x"}, illisible, "programme[0].debut_ms"},
        // An instant whose day cannot be counted in 64-bit milliseconds is refused, not wrapped.
        {{"regle", "--maintenant", "9223372036854775807", "--utilise-jour", "100"},
         R"({"limite_jour_min": 1})",
         "tavi: "},
        {{"consigne", "/nulle/part.json"}, "", "tavi: impossible de lire /nulle/part.json : "},
    };
    for (const auto& [commande, entree, attendu] : cas) {
        Sortie s = tavi(commande, entree);
        EXPECT_EQ(s.statut, 2) << s.err;
        EXPECT_EQ(s.out, "");
        EXPECT_EQ(lignes(s.err), 1u) << s.err;
        EXPECT_EQ(s.err.rfind("tavi: ", 0), 0u) << s.err;
        EXPECT_NE(s.err.find(attendu), std::string::npos) << s.err;
    }
}

TEST(Tavi, UneOptionManquanteOuMalFormeeMontreLUsageEtSortEn2) {
    const std::vector<std::vector<std::string>> mauvais = {
        {},
        {"inconnue"},
        {"regle", "--maintenant", "99999999999999999999"},
        {"regle", "--maintenant", "1", "--utilise-jour", "nan"},
        {"regle", "--maintenant", "1", "--maintenant", "2"},
        {"regle", "--maintenant", "1", "a.json", "b.json"},
        {"sieste", "--maintenant", "1"},
        {"sieste", "--maintenant", "1", "--appli", "x", "--usage", "x=dix"},
        {"site"},
        {"site", "https://a.fr", "a.json", "b.json"},
        {"applis", "en-trop"},
        {"activite", "--inconnue"},
    };
    for (const auto& arguments : mauvais) {
        Sortie s = tavi(arguments, "{}");
        EXPECT_EQ(s.statut, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(s.out, "");
        EXPECT_NE(s.err.find("usage : tavi"), std::string::npos) << s.err;
    }
}

} // namespace
} // namespace tavi
