// The guardian's looks at an X server: each test starts its own Xvfb, and the windows are
// those of other X clients, each in a child process of its own.

#include "gardien/regards.h"
#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace tavi {
namespace {

using namespace std::chrono_literals;
using Horloge = std::chrono::steady_clock;

struct Xvfb {
    std::optional<test::Processus> processus;
    std::string affichage, pourquoi;
    explicit Xvfb(const std::vector<std::string>& autres = {}) {
        if (access("/usr/bin/Xvfb", X_OK)) {
            pourquoi = "Xvfb missing (package xvfb)";
            return;
        }
        std::vector<std::string> arguments{"/usr/bin/Xvfb", "-displayfd", "1",   "-screen", "0",
                                           "640x480x24",    "-nolisten",  "tcp", "-noreset"};
        arguments.insert(arguments.end(), autres.begin(), autres.end());
        processus.emplace(arguments);
        const std::string numero = processus->ligne(20);
        (numero.empty() ? pourquoi : affichage) =
            numero.empty() ? "Xvfb did not start" : ":" + numero;
    }
};

// Another X client with one override-redirect window, mapped or not; or a window the window
// manager frames, asked full screen.
struct Fenetre {
    pid_t pid = -1;
    Fenetre(const std::string& affichage, std::int16_t x, std::int16_t y, std::uint16_t largeur,
            std::uint16_t hauteur, bool montree, bool geree = false) {
        int tube[2];
        if (pipe(tube)) return;
        pid = fork();
        if (pid == 0) {
            xcb_connection_t* c = xcb_connect(affichage.c_str(), nullptr);
            const xcb_screen_t* ecran = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
            const xcb_window_t f = xcb_generate_id(c);
            const std::uint32_t libre = !geree;
            xcb_create_window(c, XCB_COPY_FROM_PARENT, f, ecran->root, x, y, largeur, hauteur, 0,
                              XCB_WINDOW_CLASS_INPUT_OUTPUT, ecran->root_visual,
                              XCB_CW_OVERRIDE_REDIRECT, &libre);
            auto atome = [c](const std::string& nom) {
                auto r = xcb_intern_atom_reply(
                    c, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(nom.size()), nom.c_str()),
                    nullptr);
                return r ? r->atom : xcb_atom_t{XCB_ATOM_NONE}; // the child ends soon: no free
            };
            const xcb_atom_t plein = atome("_NET_WM_STATE_FULLSCREEN");
            if (geree)
                xcb_change_property(c, XCB_PROP_MODE_REPLACE, f, atome("_NET_WM_STATE"),
                                    XCB_ATOM_ATOM, 32, 1, &plein);
            if (montree) xcb_map_window(c, f);
            free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
            if (write(tube[1], "x", 1)) pause();
            _exit(0);
        }
        close(tube[1]);
        char lu;
        if (read(tube[0], &lu, 1)) close(tube[0]);
    }
    ~Fenetre() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

std::string etat(const std::optional<RegardX>& regard) {
    if (!regard) return "rien";
    if (regard->voile == EtatVoile::present) return "present";
    return regard->voile == EtatVoile::inconnu ? "inconnu " + regard->raison : regard->raison;
}

// The state of the veil once it is `attendu`, or the last one read in `delai`.
std::string attendre(Regards& regards, const AccesX& acces, pid_t agent, const std::string& attendu,
                     std::chrono::milliseconds delai = 6s) {
    std::string lu;
    for (auto fin = Horloge::now() + delai; Horloge::now() < fin && lu != attendu;
         std::this_thread::sleep_for(50ms))
        lu = etat(regards.regarder(acces, agent));
    return lu;
}

TEST(RegardsX, VoitLeVoileDeLAgentEtPourquoiIlManque) {
    Xvfb x;
    if (!x.pourquoi.empty()) GTEST_SKIP() << x.pourquoi;
    auto regards = creerRegardsX();
    const AccesX acces{x.affichage, 0, {}};
    Fenetre voile(x.affichage, 0, 0, 640, 480, true);
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "present"), "present");
    EXPECT_EQ(attendre(*regards, acces, getpid(), "aucune_fenetre"), "aucune_fenetre");
    Fenetre cachee(x.affichage, 0, 0, 640, 480, false);
    EXPECT_EQ(attendre(*regards, acces, cachee.pid, "non_visible"), "non_visible");

    // The guardian's own notice goes above everything and is not a window over the veil.
    regards->afficherAvis(acces, "La session se fermera dans une minute. Enregistre ton travail.");
    xcb_connection_t* c = xcb_connect(x.affichage.c_str(), nullptr);
    const xcb_window_t racine = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    auto dessus = [&] {
        auto arbre = xcb_query_tree_reply(c, xcb_query_tree(c, racine), nullptr);
        const xcb_window_t haut = xcb_query_tree_children(arbre)[arbre->children_len - 1];
        free(arbre);
        auto attributs =
            xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, haut), nullptr);
        const bool avis =
            attributs->override_redirect && attributs->map_state == XCB_MAP_STATE_VIEWABLE;
        free(attributs);
        return avis ? haut : 0; // under it, the hidden window: never viewable
    };
    std::this_thread::sleep_for(1500ms);
    EXPECT_NE(dessus(), 0u);
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "present"), "present");
    regards->retirerAvis(x.affichage);
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(dessus(), 0u);

    // Another client shapes the veil down to a corner: mapped, on top, and showing nothing.
    auto arbre = xcb_query_tree_reply(c, xcb_query_tree(c, racine), nullptr);
    const xcb_window_t fenetreVoile = xcb_query_tree_children(arbre)[0];
    free(arbre);
    const xcb_rectangle_t coin{0, 0, 10, 10};
    xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, 0, fenetreVoile, 0, 0, 1,
                         &coin);
    xcb_flush(c);
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "non_couvert"), "non_couvert");
    xcb_shape_mask(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, fenetreVoile, 0, 0, XCB_NONE);
    xcb_flush(c);
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "present"), "present");
    xcb_disconnect(c);

    Fenetre petite(x.affichage, 100, 100, 200, 200, true);
    EXPECT_EQ(attendre(*regards, acces, petite.pid, "non_couvert"), "non_couvert");
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "recouvert"), "recouvert");
}

// The agent's window inside the window manager's frame (openbox's) is the agent's veil.
TEST(RegardsX, VoitLeVoileDansLeCadreDuGestionnaire) {
    Xvfb x;
    if (!x.pourquoi.empty()) GTEST_SKIP() << x.pourquoi;
    if (access("/usr/bin/openbox", X_OK)) GTEST_SKIP() << "openbox missing (package openbox)";
    test::Processus gestionnaire({"/usr/bin/openbox"}, {{"DISPLAY", x.affichage}});
    std::this_thread::sleep_for(1s);
    auto regards = creerRegardsX();
    const AccesX acces{x.affichage, 0, {}};
    Fenetre voile(x.affichage, 0, 0, 300, 200, true, true);
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "present"), "present");
    Fenetre autre(x.affichage, 0, 0, 300, 200, true, true);
    EXPECT_EQ(attendre(*regards, acces, voile.pid, "recouvert"), "recouvert");
}

TEST(RegardsX, InactiviteCroitSansEntreeEtTombeApresLaSouris) {
    Xvfb x;
    if (!x.pourquoi.empty()) GTEST_SKIP() << x.pourquoi;
    if (access("/usr/bin/xdotool", X_OK)) GTEST_SKIP() << "xdotool missing (package xdotool)";
    auto regards = creerRegardsX();
    const AccesX acces{x.affichage, 0, {}};
    auto inactivite = [&](auto voulu) {
        std::optional<RegardX> regard;
        for (auto fin = Horloge::now() + 8s; Horloge::now() < fin;
             std::this_thread::sleep_for(50ms))
            if ((regard = regards->regarder(acces, 0)) && regard->inactiviteS &&
                voulu(*regard->inactiviteS))
                return *regard->inactiviteS;
        return -1.0;
    };
    EXPECT_GE(inactivite([](double s) { return s >= 2.5; }), 2.5);
    test::executer({"/usr/bin/xdotool", "mousemove", "10", "10"}, "", {{"DISPLAY", x.affichage}});
    const double apres = inactivite([](double s) { return s < 1; });
    EXPECT_GE(apres, 0);
    EXPECT_LT(apres, 1);
}

TEST(RegardsX, UnServeurArreteNeRetientNiLesRegardsNiLArret) {
    Xvfb x;
    if (!x.pourquoi.empty()) GTEST_SKIP() << x.pourquoi;
    auto regards = creerRegardsX();
    const AccesX acces{x.affichage, 0, {}};
    ASSERT_EQ(attendre(*regards, acces, 0, "sans_agent"), "sans_agent");
    kill(x.processus->pid(), SIGSTOP);
    std::int64_t ageMax = 0;
    auto lenteMax = Horloge::duration::zero();
    std::string lu;
    for (auto fin = Horloge::now() + 10s; Horloge::now() < fin && lu != "inconnu x_injoignable";
         std::this_thread::sleep_for(50ms)) {
        const auto avant = Horloge::now();
        const auto regard = regards->regarder(acces, 0);
        lenteMax = std::max(lenteMax, Horloge::now() - avant);
        lu = etat(regard);
        ageMax = std::max(ageMax, regard ? regard->ageMs : 0);
    }
    EXPECT_EQ(lu, "inconnu x_injoignable");
    EXPECT_GE(ageMax, 2000);
    EXPECT_LT(lenteMax, 100ms);
    std::this_thread::sleep_for(1500ms); // the worker tries again, and the server holds it
    const auto avant = Horloge::now();
    regards->garderSeulement({});
    regards.reset();
    EXPECT_LT(Horloge::now() - avant, 1s);
    kill(x.processus->pid(), SIGCONT);
}

// As root: the display manager's authority only when it is root's, the child's files only when
// they are the child's own and no link or FIFO.
TEST(RegardsX, PrendLAutoriteDuGestionnaireOuLesFichiersPropresDeLEnfant) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to give files to another user";
    const uid_t enfant = 4242;
    auto entree = [](unsigned famille, const std::string& numero) {
        auto champ = [](const std::string& v) {
            return std::string{static_cast<char>(v.size() >> 8), static_cast<char>(v.size())} + v;
        };
        return std::string{static_cast<char>(famille >> 8), static_cast<char>(famille)} +
               champ("tavi") + champ(numero) + champ("MIT-MAGIC-COOKIE-1") +
               champ("0123456789abcdef");
    };
    test::DossierTemporaire dossier;
    test::ecrireFichier(dossier / "serveur", entree(65535, "0"));
    Xvfb x({"-auth", (dossier / "serveur").string()});
    if (!x.pourquoi.empty()) GTEST_SKIP() << x.pourquoi;
    const std::string enfantBon = (dossier / "bon").string();
    test::ecrireFichier(enfantBon, entree(256, x.affichage.substr(1)));
    ASSERT_EQ(chown(enfantBon.c_str(), enfant, enfant), 0);
    test::ecrireFichier(dossier / "pas_a_lui", entree(256, x.affichage.substr(1)));
    ASSERT_EQ(symlink(enfantBon.c_str(), (dossier / "lien").c_str()), 0);
    ASSERT_EQ(mkfifo((dossier / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(chown((dossier / "fifo").c_str(), enfant, enfant), 0);
    auto lire = [&](const std::vector<std::string>& autorites, const std::string& attendu) {
        auto regards = creerRegardsX();
        const std::string lu = attendre(*regards, {x.affichage, enfant, autorites}, 0, attendu, 4s);
        close(open((dossier / "fifo").c_str(), O_WRONLY | O_NONBLOCK)); // frees a blocked reader
        return lu;
    };
    EXPECT_EQ(lire({}, "sans_agent"), "sans_agent");
    ASSERT_EQ(chown((dossier / "serveur").c_str(), enfant, enfant), 0);
    std::vector<std::string> pieges{(dossier / "lien").string(), (dossier / "fifo").string(),
                                    (dossier / "pas_a_lui").string()};
    EXPECT_EQ(lire(pieges, "inconnu x_injoignable"), "inconnu x_injoignable");
    pieges.push_back(enfantBon);
    EXPECT_EQ(lire(pieges, "sans_agent"), "sans_agent");
}

} // namespace
} // namespace tavi
