#include "platform/linux/demarrage_linux.h"
#include "platform/linux/demarrage_systemd.h"
#include "platform/linux/demarrage_xdg.h"
#include "platform/linux/entree_bureau.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"
#include "support/variable.h"

#include <chrono>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace tavi;
using test::ecrireFichier;
using test::lireFichier;
namespace fs = std::filesystem;

namespace {

std::string remplacer(std::string texte, const std::string& avant, const std::string& apres) {
    texte.replace(texte.find(avant), avant.size(), apres);
    return texte;
}

// A program of the system, by its absolute path; empty when it is not installed.
std::string programme(const std::string& nom) {
    for (const char* dossier : {"/usr/bin", "/bin", "/usr/sbin"})
        if (access((fs::path(dossier) / nom).c_str(), X_OK) == 0) return dossier + ("/" + nom);
    return {};
}

// The user's configuration and two system ones in a temporary folder, and an agent executable
// whose path holds every character that a desktop entry or a unit must quote. The script
// writes how it was started next to it.
struct Maison {
    test::DossierTemporaire dossier;
    OptionsDemarrage options;

    explicit Maison(ModeDemarrage mode = ModeDemarrage::xdg,
                    const std::string& nomDossier = "un dossier $HOME 50% \\ \"x\" 'y' é") {
        options.executable = dossier / nomDossier / "tavi-home";
        ecrireFichier(options.executable,
                      "#!/bin/sh\nprintf '%s\\n%s\\n' \"$0\" \"$TAVI_AGENT\" > '" +
                          (dossier / "lance").string() + "'\n");
        fs::permissions(options.executable, fs::perms::owner_all);
        options.configMaison = dossier / "config";
        options.configSysteme = {dossier / "xdg1", dossier / "xdg2"};
        options.mode = mode;
    }
    fs::path entree() const { return options.configMaison / "autostart/com.tavi.home.desktop"; }
    fs::path systeme(int i) const {
        return dossier / ("xdg" + std::to_string(i)) / "autostart/com.tavi.home.desktop";
    }
};

} // namespace

TEST(DemarrageLinux, PrendSesDossiersDansLEnvironnementMaisJamaisSonMode) {
    std::optional<OptionsDemarrage> options;
    {
        test::Variable a("XDG_CONFIG_HOME", "relatif"), b("HOME", "/maison"),
            c("XDG_CONFIG_DIRS", "rel:/a::/b"), d("XDG_RUNTIME_DIR", "/run/user/1");
        // A variable the child could set to keep the agent off the service manager.
        test::Variable mode("TAVI_DEMARRAGE", "xdg");
        options = DemarrageLinux::duProcessus().options();
    }
    EXPECT_EQ(options->executable, fs::read_symlink("/proc/self/exe"));
    EXPECT_EQ(options->configMaison, "/maison/.config");
    EXPECT_EQ(options->configSysteme, (std::vector<fs::path>{"/a", "/b"}));
    EXPECT_EQ(options->dossierExecution, "/run/user/1");
    EXPECT_EQ(options->mode, ModeDemarrage::automatique);
}

TEST(DemarrageXdg, EnregistreUneSeuleFoisALaPlaceDUnLienUneEntreeQueGLibLanceEnAgent) {
    Maison maison;
    // A link planted at the entry's place must not lead the write elsewhere.
    const auto victime = maison.dossier / "reglages.sqlite";
    ecrireFichier(victime, "donnees");
    fs::create_directories(maison.entree().parent_path());
    fs::create_symlink(victime, maison.entree());
    DemarrageLinux demarrage(maison.options);
    EXPECT_FALSE(demarrage.actif());
    const mode_t avant = umask(077);
    EXPECT_EQ(demarrage.enregistrer(), std::nullopt);
    umask(avant);
    EXPECT_TRUE(demarrage.actif());
    EXPECT_EQ(lireFichier(victime), "donnees");

    struct stat etat {};
    ASSERT_EQ(lstat(maison.entree().c_str(), &etat), 0);
    EXPECT_TRUE(S_ISREG(etat.st_mode));
    EXPECT_EQ(etat.st_mode & 0777, 0644u);
    const auto entree = lireEntreeBureau(lireFichier(maison.entree()), {});
    ASSERT_TRUE(entree);
    const std::vector<std::string> attendus = {"env", "TAVI_AGENT=1",
                                               remplacer(maison.options.executable, "%", "%%")};
    EXPECT_EQ(argumentsExec(entree->exec), attendus);

    // Registered already: the file is left as it is.
    EXPECT_EQ(demarrage.enregistrer(), std::nullopt);
    struct stat apres {};
    ASSERT_EQ(lstat(maison.entree().c_str(), &apres), 0);
    EXPECT_EQ(apres.st_ino, etat.st_ino);

    const auto gio = programme("gio");
    if (gio.empty()) GTEST_SKIP() << "gio (libglib2.0-bin) is not installed";
    const auto sortie = test::executer({gio, "launch", maison.entree().string()});
    ASSERT_EQ(sortie.statut, 0) << sortie.err;
    // gio leaves the program running: its report is waited for, not timed.
    std::string lance;
    for (int i = 0; i < 200 && std::count(lance.begin(), lance.end(), '\n') < 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        lance = lireFichier(maison.dossier / "lance");
    }
    EXPECT_EQ(lance, maison.options.executable.string() + "\n1\n");
}

TEST(DemarrageXdg, UneEntreeQueLEnfantAModifieeNEstPlusActive) {
    const fs::path exe = "/opt/tavi home/tavi-home";
    const auto notre = DemarrageXdg::texteEntree(exe);
    ASSERT_EQ(DemarrageXdg::pourquoiPasLaNotre(notre, exe), std::nullopt);
    const std::string exec = "Exec=env TAVI_AGENT=1 \"/opt/tavi home/tavi-home\"";
    const std::pair<const char*, std::string> modifiees[] = {
        {"cachée", notre + "Hidden=true\n"},
        {"désactivée", remplacer(notre, "enabled=true", "enabled=false")},
        {"autre programme", remplacer(notre, exec, "Exec=env TAVI_AGENT=1 /bin/true")},
        {"sans marqueur", remplacer(notre, "env TAVI_AGENT=1 ", "")},
        {"marqueur à 0", remplacer(notre, "TAVI_AGENT=1", "TAVI_AGENT=0")},
        {"argument ajouté", remplacer(notre, exec, exec + " --capture /tmp")},
        {"second groupe", notre + "[Autre]\nX=1\n[Desktop Entry]\nHidden=true\n"},
        {"clé répétée", notre + "X-GNOME-Autostart-enabled=false\n"},
        {"condition", notre + "OnlyShowIn=Aucun;\n"},
        {"retours chariot", remplacer(notre, "\nName", "\r\nName")},
        {"ligne continuée", remplacer(notre, "\nNoDisplay", "\\\nNoDisplay")},
        {"clé avant le groupe", "Hidden=true\n" + notre},
    };
    for (const auto& [cas, texte] : modifiees)
        EXPECT_NE(DemarrageXdg::pourquoiPasLaNotre(texte, exe), std::nullopt) << cas;
    EXPECT_NE(DemarrageXdg::pourquoiPasLaNotre(notre, "/usr/bin/autre"), std::nullopt);

    // What lies at the entry's place cannot hold the reader, and is replaced by a new entry.
    Maison maison;
    DemarrageLinux demarrage(maison.options);
    fs::create_directories(maison.entree().parent_path());
    ASSERT_EQ(mkfifo(maison.entree().c_str(), 0644), 0);
    EXPECT_FALSE(demarrage.actif());
    EXPECT_EQ(demarrage.enregistrer(), std::nullopt);
    EXPECT_TRUE(demarrage.actif());
    ecrireFichier(maison.entree(), DemarrageXdg::texteEntree(maison.options.executable) + "#" +
                                       std::string(tailleMaxEntree, 'x') + "\n");
    EXPECT_FALSE(demarrage.actif());
}

TEST(DemarrageXdg, DesenregistrerMasqueLEntreeDuSystemeEtNeCreeRienSinon) {
    Maison maison;
    DemarrageLinux demarrage(maison.options);
    demarrage.desenregistrer();
    EXPECT_FALSE(fs::exists(maison.options.configMaison));

    // The system's entry counts while the user has none; the first system folder wins.
    const auto notre = DemarrageXdg::texteEntree(maison.options.executable);
    ecrireFichier(maison.systeme(2), notre);
    EXPECT_TRUE(demarrage.actif());
    ecrireFichier(maison.systeme(1), notre + "Hidden=true\n");
    EXPECT_FALSE(demarrage.actif());
    fs::remove(maison.systeme(1));

    demarrage.desenregistrer();
    EXPECT_FALSE(demarrage.actif());
    EXPECT_EQ(lireGroupe(lireFichier(maison.entree()), "Desktop Entry").at("Hidden"), "true");
    EXPECT_EQ(lireFichier(maison.systeme(2)), notre);

    EXPECT_EQ(demarrage.enregistrer(), std::nullopt);
    EXPECT_TRUE(demarrage.actif());
    fs::remove(maison.systeme(2));
    demarrage.desenregistrer();
    EXPECT_FALSE(fs::exists(maison.entree()));
    EXPECT_FALSE(demarrage.actif());
}

TEST(DemarrageSystemd, SystemdLitDansLUniteLeCheminDeNotreProgramme) {
    const auto analyse = programme("systemd-analyze");
    if (analyse.empty()) GTEST_SKIP() << "systemd-analyze (systemd) is not installed";
    // systemd refuses quotes and backslashes in an executable's name: those paths go through
    // env, whose argument systemd does not check.
    Maison maison(ModeDemarrage::systemd, "un dossier $HOME 50%u é");
    const auto unite = maison.dossier / "com.tavi.home.service";
    ecrireFichier(unite, DemarrageSystemd::texteUnite(maison.options.executable));
    const auto sortie = test::executer({analyse, "--user", "verify", unite.string()}, "",
                                       {{"XDG_RUNTIME_DIR", maison.dossier.chemin().string()}});
    EXPECT_EQ(sortie.statut, 0) << sortie.out << sortie.err;
}

TEST(DemarrageSystemd, UnGestionnaireQuiNeRepondPasEstAbsent) {
    // Sockets that take connections and never say a word, where the manager and the bus are.
    Maison maison(ModeDemarrage::systemd);
    maison.options.dossierExecution = maison.dossier / "run";
    std::vector<int> sockets;
    for (const char* nom : {"systemd/private", "bus"}) {
        const auto chemin = maison.options.dossierExecution / nom;
        fs::create_directories(chemin.parent_path());
        sockaddr_un adresse{};
        adresse.sun_family = AF_UNIX;
        ASSERT_LT(chemin.native().size(), sizeof adresse.sun_path);
        chemin.native().copy(adresse.sun_path, chemin.native().size());
        sockets.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(sockets.back(), reinterpret_cast<sockaddr*>(&adresse), sizeof adresse), 0);
        ASSERT_EQ(listen(sockets.back(), 16), 0);
    }
    const auto fichierUnite = maison.options.configMaison / "systemd/user/com.tavi.home.service";

    DemarrageLinux systemd(maison.options);
    EXPECT_EQ(systemd.enregistrer(), "user service manager not reachable");
    EXPECT_FALSE(systemd.actif());
    EXPECT_FALSE(fs::exists(fichierUnite));

    maison.options.mode = ModeDemarrage::automatique;
    DemarrageLinux automatique(maison.options);
    EXPECT_EQ(automatique.enregistrer(), std::nullopt);
    EXPECT_TRUE(automatique.actif());
    EXPECT_TRUE(fs::exists(maison.entree()));
    EXPECT_FALSE(fs::exists(fichierUnite));
    for (int fd : sockets)
        close(fd);
}

TEST(DemarrageSystemd, EnregistreAupresDuGestionnaireDeLUtilisateur) {
    const auto systemctl = programme("systemctl");
    const auto etat = systemctl.empty()
                          ? test::Sortie{}
                          : test::executer({systemctl, "--user", "is-system-running"});
    const auto premiereLigne = etat.out.substr(0, etat.out.find('\n'));
    if (premiereLigne.empty() || premiereLigne == "offline" || premiereLigne == "unknown")
        GTEST_SKIP() << "no user service manager runs here (" << premiereLigne << ")";

    auto options = DemarrageLinux::duProcessus().options();
    options.mode = ModeDemarrage::systemd;
    const auto fichier = options.configMaison / "systemd/user/com.tavi.home.service";
    if (fs::exists(fichier)) GTEST_SKIP() << fichier << " exists: an installed agent's, left alone";
    DemarrageLinux demarrage(options);
    struct Menage {
        DemarrageLinux& d;
        ~Menage() { d.desenregistrer(); }
    } menage{demarrage};

    EXPECT_EQ(demarrage.enregistrer(), std::nullopt);
    EXPECT_TRUE(demarrage.actif());
    EXPECT_EQ(test::executer({systemctl, "--user", "is-enabled", "com.tavi.home.service"}).out,
              "enabled\n");
    demarrage.desenregistrer();
    EXPECT_FALSE(demarrage.actif());
    EXPECT_FALSE(fs::exists(fichier));
}
