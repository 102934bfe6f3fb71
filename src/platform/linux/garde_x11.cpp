#include "platform/linux/garde_x11.h"

#include <X11/Xlib.h>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <xcb/xcb.h>

namespace tavi {

namespace {

// A reply freed with the C allocator xcb made it with; null when the request failed (a window
// destroyed meanwhile answers with an error, which is no reply).
template <class T>
using Reponse = std::unique_ptr<T, decltype(&std::free)>;

template <class T>
Reponse<T> reponse(T* brute) {
    return Reponse<T>(brute, &std::free);
}

bool croise(const xcb_get_geometry_reply_t& g, const GardeFenetres::Fenetre& f) {
    const int bord = 2 * g.border_width;
    return g.x < f.x + f.largeur && f.x < g.x + g.width + bord && g.y < f.y + f.hauteur &&
           f.y < g.y + g.height + bord;
}

void ajouter(std::string& detail, const char* quoi) {
    if (!detail.empty()) detail += ", ";
    detail += quoi;
}

// A window mapped late by its owner is guarded all the same after this: a client that unmaps it
// before the guard ever saw it mapped gains no more than this delay.
constexpr std::chrono::milliseconds delaiArmement{1000};

// Passes of reading and checking in one wake-up: a client that moves a window in a tight loop
// must not hold the main thread.
constexpr int maxPasses = 8;

// The least time after a window was raised again before the next check: a window manager that
// keeps its own panel on top would otherwise trade raises with us in a busy loop. The other
// repairs are made at once: a veil unmapped in a loop must be back before the next unmapping.
constexpr std::chrono::milliseconds entreReparations{100};

} // namespace

std::unique_ptr<GardeX11> GardeX11::ouvrir(Boucle& boucle, _XDisplay* qt) {
    if (!qt) return nullptr;
    int ecran = 0;
    xcb_connection_t* connexion = xcb_connect(DisplayString(qt), &ecran);
    if (xcb_connection_has_error(connexion)) {
        xcb_disconnect(connexion);
        return nullptr;
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connexion));
    for (int i = 0; i < ecran && it.rem; ++i)
        xcb_screen_next(&it);
    if (!it.rem) {
        xcb_disconnect(connexion);
        return nullptr;
    }
    return std::unique_ptr<GardeX11>(new GardeX11(boucle, connexion, it.data->root));
}

GardeX11::GardeX11(Boucle& boucle, xcb_connection_t* connexion, unsigned int racine)
    : boucle_(boucle), connexion_(connexion), racine_(racine) {
    constexpr char nom[] = "_NET_WM_WINDOW_OPACITY";
    if (const auto atome = reponse(xcb_intern_atom_reply(
            connexion_, xcb_intern_atom(connexion_, 0, sizeof nom - 1, nom), nullptr)))
        opacite_ = atome->atom;
    surveillance_ = boucle_.surveiller(xcb_get_file_descriptor(connexion_), [this] { lire(); });
}

GardeX11::~GardeX11() {
    surveillance_.reset();
    xcb_disconnect(connexion_);
}

void GardeX11::garder(std::vector<Fenetre> fenetres) {
    gardees_.clear();
    for (Fenetre& f : fenetres)
        gardees_.push_back({f, false});
    const int generation = ++*generation_;
    // Map, unmap, configure, reparent and circulate of every child of the root (ours, and any
    // window that comes over them), only while there is something to guard: a desktop's
    // windows move all day, and the agent sleeps meanwhile.
    const std::uint32_t masque = gardees_.empty() ? 0 : XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(connexion_, racine_, XCB_CW_EVENT_MASK, &masque);
    // And the properties of ours, for their opacity.
    const std::uint32_t proprietes = XCB_EVENT_MASK_PROPERTY_CHANGE;
    for (const Gardee& g : gardees_)
        xcb_change_window_attributes(connexion_, g.voulue.id, XCB_CW_EVENT_MASK, &proprietes);
    xcb_flush(connexion_);
    if (gardees_.empty()) return;
    verifier();
    lire();
    std::weak_ptr<int> suivi = generation_;
    boucle_.plusTard(delaiArmement, [this, suivi, generation] {
        const auto vivante = suivi.lock();
        if (!vivante || *vivante != generation) return;
        for (Gardee& g : gardees_)
            g.vue = true;
        verifier();
        lire();
    });
}

// Also called after each check made outside it: events that came during the check's round trips
// wait in xcb's queue, where the descriptor no longer says so.
void GardeX11::lire() {
    for (int passe = 0; passe < maxPasses; ++passe) {
        bool change = false;
        while (xcb_generic_event_t* evenement = xcb_poll_for_event(connexion_)) {
            // Errors (response 0) are the answers to repairs of windows destroyed meanwhile.
            change = change || (evenement->response_type & 0x7f) != 0;
            std::free(evenement);
        }
        if (xcb_connection_has_error(connexion_)) {
            // The server is gone: so are the windows.
            surveillance_.reset();
            gardees_.clear();
            return;
        }
        if (!change || gardees_.empty()) return;
        verifierAuPlusTot();
    }
    // Still busy: the rest after whatever else waits on the main thread.
    std::weak_ptr<int> suivi = generation_;
    boucle_.plusTard(std::chrono::milliseconds(0), [this, suivi] {
        if (suivi.lock()) lire();
    });
}

void GardeX11::verifierAuPlusTot() {
    const auto attente = derniereReparation_ + entreReparations - std::chrono::steady_clock::now();
    if (attente <= std::chrono::steady_clock::duration::zero()) return verifier();
    if (verificationPrevue_) return;
    verificationPrevue_ = true;
    std::weak_ptr<int> suivi = generation_;
    boucle_.plusTard(std::chrono::ceil<std::chrono::milliseconds>(attente), [this, suivi] {
        if (!suivi.lock()) return;
        verificationPrevue_ = false;
        verifier();
        lire();
    });
}

void GardeX11::verifier() {
    struct Question {
        xcb_query_tree_cookie_t arbre;
        xcb_get_window_attributes_cookie_t attributs;
        xcb_get_geometry_cookie_t geometrie;
        xcb_get_property_cookie_t opacite;
    };
    // Every question leaves before any answer is read: one round trip for all the windows.
    std::vector<Question> questions;
    for (const Gardee& g : gardees_)
        questions.push_back({xcb_query_tree(connexion_, g.voulue.id),
                             xcb_get_window_attributes(connexion_, g.voulue.id),
                             xcb_get_geometry(connexion_, g.voulue.id),
                             xcb_get_property(connexion_, 0, g.voulue.id, opacite_,
                                              XCB_GET_PROPERTY_TYPE_ANY, 0, 1)});
    const auto racine =
        reponse(xcb_query_tree_reply(connexion_, xcb_query_tree(connexion_, racine_), nullptr));

    // The root's children, bottom to top, and for those above our lowest window what covers.
    std::vector<xcb_window_t> pile;
    if (racine) {
        const xcb_window_t* enfants = xcb_query_tree_children(racine.get());
        pile.assign(enfants, enfants + xcb_query_tree_children_length(racine.get()));
    }
    std::vector<std::string> reparees;
    bool seulementRecouvertes = true;
    for (std::size_t i = 0; i < gardees_.size(); ++i) {
        Gardee& g = gardees_[i];
        const Fenetre& f = g.voulue;
        const auto arbre = reponse(xcb_query_tree_reply(connexion_, questions[i].arbre, nullptr));
        const auto attributs =
            reponse(xcb_get_window_attributes_reply(connexion_, questions[i].attributs, nullptr));
        const auto geometrie =
            reponse(xcb_get_geometry_reply(connexion_, questions[i].geometrie, nullptr));
        // Gone: its owner destroyed it, which is the owner's business.
        if (!arbre || !attributs || !geometrie) continue;
        if (attributs->map_state == XCB_MAP_STATE_VIEWABLE && !g.vue) {
            g.vue = true;
            // At a fractional scale the owner rounds the screen's size its own way: where it put
            // the window, when that is within a pixel or two of what was asked, is what is kept.
            const auto proche = [](int a, int b) { return std::abs(a - b) <= 2; };
            if (proche(geometrie->x, f.x) && proche(geometrie->y, f.y) &&
                proche(geometrie->width, f.largeur) && proche(geometrie->height, f.hauteur))
                g.voulue = {f.id, geometrie->x, geometrie->y, geometrie->width, geometrie->height};
        }
        if (!g.vue) continue;

        std::string detail;
        if (arbre->parent != racine_) {
            ajouter(detail, "détaché");
            xcb_reparent_window(connexion_, f.id, racine_, static_cast<std::int16_t>(f.x),
                                static_cast<std::int16_t>(f.y));
        }
        if (attributs->map_state == XCB_MAP_STATE_UNMAPPED) ajouter(detail, "démappé");
        if (geometrie->x != f.x || geometrie->y != f.y) ajouter(detail, "déplacé");
        if (geometrie->width != f.largeur || geometrie->height != f.hauteur)
            ajouter(detail, "redimensionné");
        const auto opacite =
            reponse(xcb_get_property_reply(connexion_, questions[i].opacite, nullptr));
        if (opacite_ && opacite && opacite->type != XCB_NONE) {
            ajouter(detail, "transparent");
            xcb_delete_property(connexion_, f.id, opacite_);
        }

        const auto place = std::find(pile.begin(), pile.end(), f.id);
        if (place != pile.end() && detail.empty()) {
            std::vector<std::pair<xcb_get_window_attributes_cookie_t, xcb_get_geometry_cookie_t>>
                dessus;
            for (auto it = place + 1; it != pile.end(); ++it) {
                const bool notre = std::any_of(gardees_.begin(), gardees_.end(),
                                               [&](const Gardee& o) { return o.voulue.id == *it; });
                if (!notre)
                    dessus.emplace_back(xcb_get_window_attributes(connexion_, *it),
                                        xcb_get_geometry(connexion_, *it));
            }
            bool recouverte = false;
            for (const auto& [a, geo] : dessus) {
                const auto at = reponse(xcb_get_window_attributes_reply(connexion_, a, nullptr));
                const auto ge = reponse(xcb_get_geometry_reply(connexion_, geo, nullptr));
                // An input-only window draws nothing, and the grab takes the input from it.
                recouverte =
                    recouverte || (at && ge && at->map_state == XCB_MAP_STATE_VIEWABLE &&
                                   at->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT && croise(*ge, f));
            }
            if (recouverte) ajouter(detail, "recouvert");
        }
        if (detail.empty()) continue;

        const std::uint32_t valeurs[] = {
            static_cast<std::uint32_t>(f.x), static_cast<std::uint32_t>(f.y),
            static_cast<std::uint32_t>(f.largeur), static_cast<std::uint32_t>(f.hauteur),
            XCB_STACK_MODE_ABOVE};
        xcb_configure_window(connexion_, f.id,
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                                 XCB_CONFIG_WINDOW_HEIGHT | XCB_CONFIG_WINDOW_STACK_MODE,
                             valeurs);
        xcb_map_window(connexion_, f.id);
        seulementRecouvertes = seulementRecouvertes && detail == "recouvert";
        reparees.push_back(std::move(detail));
    }
    if (reparees.empty()) return;
    if (seulementRecouvertes) derniereReparation_ = std::chrono::steady_clock::now();
    // A round trip: once it is back, the server has made every repair.
    std::free(xcb_get_input_focus_reply(connexion_, xcb_get_input_focus(connexion_), nullptr));
    if (!quandRepare) return;
    for (const std::string& detail : reparees)
        quandRepare(detail);
}

} // namespace tavi
