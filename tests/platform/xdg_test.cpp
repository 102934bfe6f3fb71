#include "platform/linux/applications_xdg.h"
#include "platform/linux/categories_xdg.h"
#include "platform/linux/index_entrees.h"
#include "rules/programme.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavi;
using test::ecrireFichier;
namespace fs = std::filesystem;

namespace {

std::string entree(const std::string& lignes) {
    return "[Desktop Entry]\nType=Application\n" + lignes;
}

// A user's data folder and two system ones, a PATH folder and a /proc of our own.
struct ArbreXdg {
    test::DossierTemporaire dossier;
    EnvironnementXdg environnement;

    ArbreXdg() {
        environnement.maison = (dossier / "maison").string();
        environnement.donnees = (dossier / "sys1").string() + ":" + (dossier / "sys2").string();
        environnement.bureauCourant = "ubuntu:GNOME";
        environnement.chemins = "bin:" + (dossier / "bin").string();
        environnement.locale = "fr_FR.UTF-8";
        environnement.racineProc = dossier / "proc";
        // The test's folder stands for the system's files; the user's folder, which others
        // than the system may write, for the child's home.
        environnement.confiance = {dossier.chemin(), getuid()};
        fs::create_directories(dossier / "maison");
        fs::permissions(dossier / "maison", fs::perms::group_write, fs::perm_options::add);
    }
    void utilisateur(const std::string& id, const std::string& texte) {
        ecrireFichier(dossier / "maison/.local/share/applications" / id, texte);
    }
    void systeme(const std::string& id, const std::string& texte) {
        ecrireFichier(dossier / "sys2/applications" / id, texte);
    }
    std::shared_ptr<const IndexEntrees> index() const {
        return IndexEntrees::charger(environnement);
    }
};

} // namespace

TEST(EntreeBureau, LitLeGroupeSesEchappementsEtLeNomDeLaLangue) {
    const std::string texte = "# comment\n[Autre]\nName=Pas ici\n[Desktop Entry]\r\n"
                              "Type = Application\nName=Jeu\nName[fr]=Jeu fr\n"
                              "Name[fr_FR]=Jeu\\sFR\nName[de@ost]=Spiel\xff\nName[de]=Spiel\n"
                              "Name=doublon\nCategories=Game;Arcade\\;Game;\n"
                              "Exec=\"/opt/mon jeu/jeu\" --x=\"a \\\"b\\\"\" %U\n"
                              "Comment=a\\tb\\\\n\nNoDisplay=true\nHidden=1\n[Desktop Action x]\n"
                              "StartupWMClass=Non\n";
    const std::pair<const char*, const char*> noms[] = {{"fr_FR.UTF-8", "Jeu FR"},
                                                        {"fr_BE@euro", "Jeu fr"},
                                                        {"de_AT.UTF-8@ost", "Spiel"},
                                                        {"C", "Jeu"}};
    for (const auto& [locale, nom] : noms) {
        const auto lue = lireEntreeBureau(texte, variantesLocale(locale));
        ASSERT_TRUE(lue) << locale;
        EXPECT_EQ(lue->nom, nom) << locale;
    }
    const auto lue = lireEntreeBureau(texte, {});
    EXPECT_EQ(lue->categories, (std::vector<std::string>{"Game", "Arcade;Game"}));
    EXPECT_TRUE(lue->noDisplay);
    EXPECT_FALSE(lue->hidden);
    EXPECT_EQ(lue->startupWmClass, "");
    EXPECT_EQ(argumentsExec(lue->exec),
              (std::vector<std::string>{"/opt/mon jeu/jeu", "--x=a \"b\"", "%U"}));

    EXPECT_FALSE(lireEntreeBureau("[Desktop Action x]\nName=a\n", {}));
    EXPECT_FALSE(lireEntreeBureau(entree("Name=" + std::string(tailleMaxEntree, 'a')), {}));
}

TEST(EnvironnementXdg, PrendLesDossiersAbsolusDansLOrdreEtLesDefautsSinon) {
    EnvironnementXdg env;
    env.maison = "/home/zoe";
    env.dossiersExportes = {"/var/lib/flatpak/exports/share", "/usr/share/"};
    using Dossiers = std::vector<fs::path>;
    EXPECT_EQ(env.dossiersDonnees(),
              (Dossiers{"/home/zoe/.local/share", "/usr/local/share", "/usr/share",
                        "/home/zoe/.local/share/flatpak/exports/share",
                        "/var/lib/flatpak/exports/share"}));
    env.donneesMaison = "relatif";
    env.donnees = "/opt/a:relatif::/opt/b/";
    env.maison = "";
    EXPECT_EQ(env.dossiersDonnees(),
              (Dossiers{"/opt/a", "/opt/b", "/var/lib/flatpak/exports/share", "/usr/share"}));
    env.donneesMaison = "/x";
    EXPECT_EQ(env.dossiersDonnees().front(), "/x");
}

// The child renames a game "Calculatrice", moves it to Education or hides it with an entry of
// the same id in their own folder, which the search order puts first.
TEST(IndexEntrees, LeSystemeLEmporteSurLUtilisateurEtLeMenuSuitLesClesDeVisibilite) {
    ArbreXdg arbre;
    const auto essai = arbre.dossier / "bin/essai";
    ecrireFichier(essai, "");
    fs::permissions(essai, fs::perms::owner_all);
    arbre.utilisateur("jeu.desktop", entree("Name=Calculatrice\nCategories=Education;\n"));
    arbre.utilisateur("efface.desktop", entree("Hidden=true\n"));
    arbre.utilisateur("perso.desktop", entree("Name=Perso\nCategories=Education;\n"));
    ecrireFichier(arbre.dossier / "sys1/applications/premier.desktop", entree("Name=Premier\n"));
    // Files of the last system folder: {file, text, "absent", "caché" or the menu's name}.
    const std::tuple<std::string, std::string, std::string> cas[] = {
        {"jeu.desktop", entree("Name=Jeu\nCategories=Game;\n"), "Jeu"},
        {"efface.desktop", entree("Name=Efface\n"), "Efface"},
        {"premier.desktop", entree("Name=Second\n"), "Premier"},
        {"cache.desktop", entree("NoDisplay=true\n"), "caché"},
        {"kde-seul.desktop", entree("OnlyShowIn=KDE;XFCE;\n"), "caché"},
        {"gnome-seul.desktop", entree("Name=G\nOnlyShowIn=KDE;GNOME;\n"), "G"},
        {"sauf-gnome.desktop", entree("NotShowIn=GNOME;\n"), "caché"},
        {"sauf-gnome-minuscule.desktop", entree("Name=g\nNotShowIn=gnome;\n"), "g"},
        {"essai-absent.desktop", entree("TryExec=absent\n"), "caché"},
        {"essai-path.desktop", entree("Name=P\nTryExec=essai\n"), "P"},
        {"essai-absolu.desktop", entree("Name=A\nTryExec=" + essai.string() + "\n"), "A"},
        {"kde/foo.desktop", entree("Name=Foo\nName[fr]=Fou\n"), "Fou"},
        {"lien.desktop", "[Desktop Entry]\nType=Link\nName=Lien\n", "absent"},
        {"pas-une-entree.txt", entree("Name=Non\n"), "absent"},
    };
    for (const auto& [fichier, texte, attendu] : cas)
        arbre.systeme(fichier, texte);
    const auto index = arbre.index();
    for (auto [fichier, texte, attendu] : cas) {
        std::replace(fichier.begin(), fichier.end(), '/', '-');
        const auto* e = index->parIdentifiant(fs::path(fichier).replace_extension().string());
        ASSERT_EQ(e != nullptr, attendu != "absent") << fichier;
        if (!e) continue;
        EXPECT_EQ(e->visible ? e->entree.nom : "caché", attendu) << fichier;
    }
    // The child's own entry is listed, but declares no category the rules believe.
    ASSERT_TRUE(index->parIdentifiant("perso"));
    CategoriesXdg categories(index);
    EXPECT_EQ(categories.categorie({"jeu", std::nullopt, "", 1}), "public.app-category.games");
    EXPECT_EQ(categories.categorie({"perso", std::nullopt, "", 1}), std::nullopt);
}

// The child fills the folders they control, searched first, to use up the reading before the
// system's entries.
TEST(IndexEntrees, UnDossierHostileNeBloquePasNiNeDebordeLaLecture) {
    ArbreXdg arbre;
    arbre.environnement.donnees = (arbre.dossier / "a1").string() + ":" +
                                  (arbre.dossier / "a2").string() + ":" +
                                  arbre.environnement.donnees;
    const auto dossier = arbre.dossier / "maison/.local/share/applications";
    fs::create_directories(dossier / "a/b/c/d");
    ASSERT_EQ(mkfifo((dossier / "tube.desktop").c_str(), 0600), 0);
    ecrireFichier(dossier / "a/b/c/d/profond.desktop", entree(""));
    ecrireFichier(dossier / "gros.desktop", entree(std::string(tailleMaxEntree, '#')));
    for (const auto& [dans, prefixe] : {std::pair{dossier, "e"},
                                        {arbre.dossier / "a1/applications", "f"},
                                        {arbre.dossier / "a2/applications", "g"}}) {
        for (std::size_t i = 0; i < IndexEntrees::fichiersMaxParDossier + 10; ++i)
            ecrireFichier(dans / (prefixe + std::to_string(i) + ".desktop"), entree(""));
        fs::permissions(dans.parent_path(), fs::perms::group_write, fs::perm_options::add);
    }
    arbre.systeme("jeu.desktop", entree("Name=Jeu\n"));
    const auto index = arbre.index();
    EXPECT_EQ(index->parIdentifiant("a-b-c-d-profond"), nullptr);
    EXPECT_EQ(index->parIdentifiant("gros"), nullptr);
    EXPECT_TRUE(index->parIdentifiant("jeu"));
    EXPECT_LE(index->entrees().size(), IndexEntrees::entreesMax);
    EXPECT_GT(index->entrees().size(), IndexEntrees::fichiersMaxParDossier + 10);
}

TEST(CategoriesXdg, LesEntreesReellesTombentDansLeursFamilles) {
    // {Categories, the category, the family that cuts it}; empty: none.
    const std::tuple<const char*, const char*, const char*> cas[] = {
        {"Game;ArcadeGame;", "public.app-category.arcade-games", "jeux"},
        {"Qt;Education;Game;KidsGame;", "public.app-category.kids-games", "jeux"},
        {"Education;Simulation;", "public.app-category.education", ""},
        {"GNOME;GTK;AudioVideo;Audio;Player;", "public.app-category.music", "musique"},
        {"AudioVideo;Player;Recorder;", "public.app-category.entertainment", "videos"},
        {"GTK;Network;Chat;IRCClient;", "public.app-category.social-networking", "reseaux"},
        {"Network;WebBrowser;", "public.app-category.productivity", ""},
        {"Network;", "", ""},
        {"game;", "", ""},
    };
    for (const auto& [categories, attendue, famille] : cas) {
        const auto lue = lireEntreeBureau(entree("Categories=" + std::string(categories)), {});
        const auto categorie = categorieXdg(lue->categories).value_or("");
        EXPECT_EQ(categorie, attendue) << categories;
        for (const auto& [nom, fragments] : Programme::categories()) {
            const bool coupee = std::any_of(fragments.begin(), fragments.end(), [&](auto& f) {
                return categorie.find(f) != std::string::npos;
            });
            EXPECT_EQ(coupee, nom == famille) << categories << " " << nom;
        }
    }
}

TEST(ApplicationsXdg, ListeLeMenuJusquAuPlafondLesNavigateursMemeCachesEtLeursCategories) {
    ArbreXdg arbre;
    arbre.systeme("a.desktop", entree("Name=A\nCategories=Game;\n"
                                      "MimeType=text/html;x-scheme-handler/https;\n"));
    arbre.systeme("b.desktop", entree("Name=B\n"));
    arbre.systeme("c.desktop",
                  entree("Name=C\nNoDisplay=true\nMimeType=x-scheme-handler/https;\n"));
    arbre.systeme("d.desktop", entree("Name=D\nMimeType=x-scheme-handler/http;\n"));
    const ApplicationsXdg applications(arbre.environnement);
    EXPECT_EQ(applications.lire(10),
              (std::vector<ApplicationInstallee>{{"a", "A", "public.app-category.games", false},
                                                 {"b", "B", std::nullopt, false},
                                                 {"d", "D", std::nullopt, false}}));
    EXPECT_EQ(applications.lire(1).size(), 1u);
    EXPECT_EQ(applications.navigateurs(), (std::set<std::string>{"a", "c"}));

    // A running application's category: by its id, else by its entry's file, from the index
    // last handed over.
    CategoriesXdg categories;
    const Application a{"a", std::nullopt, "A", 1};
    EXPECT_EQ(categories.categorie(a), std::nullopt);
    categories.remplacer(arbre.index());
    EXPECT_EQ(categories.categorie(a), "public.app-category.games");
    const Application parFichier{"autre", (arbre.dossier / "sys2/applications/a.desktop").string(),
                                 "A", 1};
    EXPECT_EQ(categories.categorie(parFichier), "public.app-category.games");
}

// The window's class, GTK id and the process's cgroup are the child's to write; the program a
// process runs, only where the system put it.
TEST(IndexEntrees, NommeLeProcessusParCeQueLeSystemeAEcritJamaisParSesPropresMots) {
    ArbreXdg arbre;
    const auto& d = arbre.dossier;
    arbre.systeme("org.mozilla.firefox.desktop", entree("Name=Firefox\nName[fr]=Firefox fr\n"));
    arbre.systeme("org.gnome.Nautilus.desktop",
                  entree("Name=Fichiers\nExec=nautilus --new-window\n"));
    arbre.systeme("jeu-video.desktop", entree("Name=Jeu\nExec=jeu\nStartupWMClass=JeuVideo\n"));
    arbre.systeme("outil.desktop", entree("Name=Outil\nExec=env A=1 /opt/outil-gui %U\n"));
    arbre.systeme("script.desktop",
                  entree("Name=Script\nExec=python3 " + (d / "usr/monscript.py").string() + "\n"));
    for (const char* programme :
         {"usr/nautilus", "usr/outil-gui", "usr/python3.11", "usr/monscript.py", "maison/nautilus"})
        ecrireFichier(d / programme, "");
    const auto proc = d / "proc";
    auto processus = [&](int pid, const fs::path& exe, const std::string& ligne = "") {
        fs::create_directories(proc / std::to_string(pid));
        fs::create_symlink(exe, proc / std::to_string(pid) / "exe");
        if (!ligne.empty()) ecrireFichier(proc / std::to_string(pid) / "cmdline", ligne);
    };
    ecrireFichier(proc / "100/root/.flatpak-info", "[Application]\nname=org.mozilla.firefox\n");
    ecrireFichier(proc / "101/root/.flatpak-info", "[Application]\nname=org.mozilla.firefox\n");
    fs::permissions(proc / "101/root", fs::perms::others_write, fs::perm_options::add);
    processus(101, d / "maison/nautilus");
    ecrireFichier(proc / "102/cgroup", "0::/app.slice/app-flatpak-org.mozilla.firefox-42.scope\n");
    processus(102, d / "maison/nautilus");
    processus(103, d / "usr/nautilus");
    processus(104, d / "usr/outil-gui");
    processus(105, (d / "usr/outil-gui").string() + " (deleted)");
    processus(108, d / "usr/python3.11",
              std::string("python3\0-u\0", 11) + (d / "usr/monscript.py").string());
    processus(109, d / "usr/python3.11", std::string("python3\0jeu.py\0", 15));
    const auto index = arbre.index();
    const std::string maison = (d / "maison/nautilus").string();

    const std::pair<IndicesFenetre, std::string> cas[] = {
        // "id|name", empty: no identity
        {{100, "", "", ""}, "org.mozilla.firefox|Firefox fr"},
        {{101, "nautilus", "Nautilus", "org.gnome.Nautilus"}, maison + "|nautilus"},
        {{102, "", "", ""}, maison + "|nautilus"},
        {{103, "", "x", ""}, "org.gnome.Nautilus|Fichiers"},
        {{104, "", "JeuVideo", ""}, "outil|Outil"},
        {{105, "", "", ""}, (d / "usr/outil-gui").string() + "|outil-gui"},
        {{108, "", "", ""}, "script|Script"},
        {{109, "", "", ""}, (d / "usr/python3.11").string() + " jeu.py|jeu.py"},
        {{0, "", "Nautilus", ""}, ""},
    };
    for (const auto& [indices, attendu] : cas) {
        const auto identite = index->identifier(indices);
        EXPECT_EQ(identite ? identite->identifiant + "|" + identite->nom : "", attendu)
            << indices.pid;
    }
}

// A real sandbox: the system's installation of org.x.Jeu runs from /app, and a program of the
// child's, run the same way, claims to be it.
TEST(IndexEntrees, UnFlatpakEstCeluiDontLInstallationDuSystemeTientLeProgramme) {
    if (access("/usr/bin/bwrap", X_OK) != 0 || access("/usr/bin/sleep", X_OK) != 0)
        GTEST_SKIP() << "bwrap (package bubblewrap) is not installed";
    ArbreXdg arbre;
    const auto& d = arbre.dossier;
    arbre.environnement.racineProc = "/proc";
    arbre.environnement.installationFlatpak = d / "flatpak";
    arbre.systeme("org.x.Jeu.desktop", entree("Name=Jeu\n"));
    const auto deploiement = d / "flatpak/app/org.x.Jeu/x86_64/stable";
    fs::create_directories(deploiement / "abc/files/bin");
    fs::create_symlink("x86_64/stable", d / "flatpak/app/org.x.Jeu/current");
    fs::create_symlink("abc", deploiement / "active");
    fs::create_directories(d / "maison/bin");
    for (const auto& dossier : {deploiement / "abc/files", d / "maison"})
        fs::copy_file("/usr/bin/sleep", dossier / "bin/jeu");
    ecrireFichier(d / "maison/info", "[Application]\nname=org.x.Jeu\n");
    const auto index = arbre.index();
    auto lancer = [&](const fs::path& app) {
        auto sandbox = std::make_unique<test::Processus>(std::vector<std::string>{
            "/usr/bin/bwrap", "--ro-bind", "/usr", "/usr", "--symlink", "usr/lib", "/lib",
            "--symlink", "usr/lib64", "/lib64", "--bind", app.string(), "/app", "--ro-bind",
            (d / "maison/info").string(), "/.flatpak-info", "/app/bin/jeu", "30"});
        // bwrap stays beside the program it starts.
        const auto parent = "/proc/" + std::to_string(sandbox->pid());
        std::int64_t pid = 0;
        for (int essai = 0; essai < 200; ++essai, usleep(20000)) {
            std::error_code erreur;
            std::ifstream enfants(parent + "/task/" + std::to_string(sandbox->pid()) + "/children");
            if (enfants >> pid &&
                fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", erreur) == "/app/bin/jeu")
                break;
        }
        if (pid == 0) return std::string("-");
        const auto identite = index->identifier({pid, "", "org.x.Jeu", "org.x.Jeu"});
        return identite ? identite->identifiant + "|" + identite->nom : "";
    };
    const auto duSysteme = lancer(deploiement / "abc/files");
    if (duSysteme == "-") GTEST_SKIP() << "bwrap could not make a sandbox here";
    EXPECT_EQ(duSysteme, "org.x.Jeu|Jeu");
    EXPECT_EQ(lancer(d / "maison"), "/app/bin/jeu|jeu");
}
