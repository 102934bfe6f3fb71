#include "commun/jour.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/variable.h"

#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

namespace tavi {
namespace {

using test::Sortie;

// Runs tavi with the words of `commande`, in French, with no display nor bus and the desktop
// entries of `xdg` only, under a TZ it must ignore: its days are the system zone's, and Pago
// Pago's is rarely a system's.
Sortie tavi(const std::string& commande, const std::string& entree = "",
            const std::string& xdg = "/nulle/part") {
    std::istringstream flux(commande);
    std::vector<std::string> arguments{TAVI_BINAIRE};
    arguments.insert(arguments.end(), std::istream_iterator<std::string>(flux), {});
    return test::executer(arguments, entree,
                          {{"TZ", "Pacific/Pago_Pago"},
                           {"LANGUAGE", "fr"},
                           {"XDG_DATA_HOME", xdg},
                           {"XDG_DATA_DIRS", xdg},
                           {"DISPLAY", ""},
                           {"WAYLAND_DISPLAY", ""},
                           {"XDG_SESSION_TYPE", ""},
                           {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nulle/part"},
                           {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nulle/part"}});
}

// The end of the day of `instantMs` in the system's time zone, which tavi follows whatever TZ
// its environment carries.
std::int64_t finDuJourSysteme(std::int64_t instantMs) {
    std::int64_t fin = 0;
    {
        test::Variable sansTz("TZ", nullptr);
        tzset();
        fin = debutJourLocalMs(instantMs) + 86'400'000;
    }
    tzset();
    return fin;
}

std::size_t lignes(const std::string& texte) {
    return static_cast<std::size_t>(std::count(texte.begin(), texte.end(), '\n'));
}

TEST(Tavi, ChaqueCommandeRepondEnJsonDepuisLEntreeUnFichierOuLeSysteme) {
    // 2026-10-25T12:00+01:00: the day of the autumn change in Paris, 25 hours long.
    const std::string midi = " --maintenant 1792926000000";
    const std::string exemple = TAVI_SOURCES "/exemples/consigne.json";
    const std::string limite = R"({"limite_jour_min": 30, "reste_jour_min": 10})";
    const std::string jeux = R"({"mac": {"limites": [{"id": "j", "nom": "Jeux", "minutes": 10,
                                 "applis": ["steam", "mc"]}]}})";
    const std::string filtre = R"({"filtre_web": {"domaines_bloques": ["exemple.fr"]}})";
    test::DossierTemporaire xdg;
    test::ecrireFichier(xdg / "applications/z.desktop",
                        "[Desktop Entry]\nType=Application\nName=zèbre\nCategories=Game;\n");
    test::ecrireFichier(xdg / "applications/cache.desktop",
                        "[Desktop Entry]\nType=Application\nName=Caché\nNoDisplay=true\n");
    const std::tuple<std::string, std::string, std::string> cas[] = {
        {"regle" + midi + " --utilise-jour 1800 -", limite,
         R"({"bloquer_tout":true,"bloquees":[],"familles":[],"cause":"limite","titre":)"
         R"("Limite du jour","titre_affiche":"Limite du jour","fin":)" +
             std::to_string(finDuJourSysteme(1792926000000)) + "}\n"},
        {"regle" + midi + " --utilise-jour=1800 --utilise-depuis-consigne=599", limite, "null\n"},
        {"regle --maintenant 1795465800000 " + exemple, "", R"("titre_affiche":"Dodo")"},
        {"sieste" + midi + " --appli mc --usage steam=300 --usage mc=300", jeux,
         R"("titre_affiche":"Limite : Jeux")"},
        // Applications the rule set does not name count 0.
        {"sieste" + midi + " --appli mc --usage steam=599", jeux, "null\n"},
        {"site https://WWW.Video.Exemple.FR/x -", filtre,
         R"({"domaine":"video.exemple.fr","bloque":true,"filtre_utile":true})"},
        // Without a file the rule set is empty, and standard input is not read.
        {"site https://video.exemple.fr", filtre, R"("bloque":false,"filtre_utile":false)"},
        {"site about:blank", "", R"({"domaine":null,)"},
        // The system's own folders are read too, whatever XDG_DATA_DIRS says.
        {"applis", "", R"({"c":"public.app-category.games","n":"zèbre","p":"z"})"},
        {"applis", "", R"(z|zèbre|public.app-category.games)"},
        {"activite", "", R"("inobservable":["application_au_premier_plan")"},
    };
    for (const auto& [commande, entree, attendu] : cas) {
        const Sortie s = tavi(commande, entree, xdg.chemin().string());
        EXPECT_EQ(s.statut, 0) << commande << ": " << s.err;
        EXPECT_NE(s.out.find(attendu), std::string::npos) << commande << ": " << s.out;
    }
    const Sortie consigne = tavi("consigne " + exemple);
    EXPECT_EQ(lignes(consigne.out), 1u);
    EXPECT_EQ(tavi("consigne", consigne.out).out, consigne.out) << "its output decodes to itself";
}

TEST(Tavi, UneConsigneIllisibleOuUnArgumentMalFormeSortEn2AvecUneLigneQuiDitPourquoi) {
    const std::string illisible = R"({"programme": [{"debut_ms": "hier", "fin_ms": 1}]})";
    const std::tuple<std::string, std::string, std::string> cas[] = {
        {"consigne", illisible, "programme[0].debut_ms"},
        {"sieste --maintenant 0 --appli x", illisible, "programme[0].debut_ms"},
        // An instant outside the calendar is refused, not taken for the calendar's end.
        {"regle --maintenant 9223372036854775807 --utilise-jour 100", R"({"limite_jour_min": 1})",
         "tavi: "},
        {"consigne /nulle/part.json", "", "tavi: impossible de lire /nulle/part.json : "},
    };
    for (const auto& [commande, entree, attendu] : cas) {
        Sortie s = tavi(commande, entree);
        EXPECT_EQ(s.statut, 2) << s.err;
        EXPECT_EQ(s.out, "");
        EXPECT_EQ(lignes(s.err), 1u) << s.err;
        EXPECT_EQ(s.err.rfind("tavi: ", 0), 0u) << s.err;
        EXPECT_NE(s.err.find(attendu), std::string::npos) << s.err;
    }

    for (const char* mauvais :
         {"", "inconnue", "regle --maintenant 99999999999999999999",
          "regle --maintenant 1 --utilise-jour nan", "regle --maintenant 1 --maintenant 2",
          "regle --maintenant 1 a.json b.json", "sieste --maintenant 1",
          "sieste --maintenant 1 --appli x --usage x=dix", "site",
          "site https://a.fr a.json b.json", "applis en-trop", "activite --inconnue"}) {
        Sortie s = tavi(mauvais, "{}");
        EXPECT_EQ(s.statut, 2) << mauvais;
        EXPECT_EQ(s.out, "");
        EXPECT_NE(s.err.find("usage : tavi"), std::string::npos) << s.err;
    }
}

} // namespace
} // namespace tavi
