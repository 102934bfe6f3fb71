#include "gardien/sonde_x.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <xcb/res.h>

namespace tavi {
namespace {

// Bounds on one look, whatever the X server holds: a desktop has a few hundred windows.
constexpr std::size_t sommetsMax = 1024;
constexpr std::size_t noeudsMax = 4096;
constexpr std::size_t clientsMax = 256;

// A child of the root window, as it stacks: the agent's own, or a window manager's frame
// around one of the agent's windows.
struct Sommet {
    xcb_window_t id = 0;
    RectX exterieur, interieur;
    bool visible = false, sortie = false, aAgent = false;
    pid_t pid = 0;
    std::vector<RectX> voiles; // what the agent's viewable windows in it show
};

// A window inside a top-level, down to its grandchildren (a frame's wrapper, then the client).
struct Noeud {
    xcb_window_t id = 0;
    std::size_t sommet = 0;
    int parent = -1; // index among the nodes, -1 for the top-level itself
    pid_t pid = 0;
    RectX interieur;
    bool visible = false;
};

struct Bilan {
    std::vector<Sommet> sommets; // bottom to top
    bool agentVu = false, agentVisible = false;
};

class Lecteur {
public:
    explicit Lecteur(const SondeX& laSonde) : c(laSonde.connexion()), sonde(laSonde) {}

    std::vector<xcb_window_t> enfants(xcb_window_t fenetre) {
        return enfants(xcb_query_tree(c, fenetre));
    }
    std::vector<xcb_window_t> enfants(xcb_query_tree_cookie_t cookie) {
        auto arbre = reponse(xcb_query_tree_reply(c, cookie, nullptr));
        if (!arbre) return {};
        const xcb_window_t* liste = xcb_query_tree_children(arbre.get());
        const int nombre = xcb_query_tree_children_length(arbre.get());
        return {liste, liste + nombre};
    }

    // The pid of each window's client, asked once per client; 0 when the server does not say.
    void pids(const std::vector<xcb_window_t>& fenetres) {
        std::vector<std::pair<std::uint32_t, xcb_res_query_client_ids_cookie_t>> attente;
        for (xcb_window_t fenetre : fenetres) {
            const std::uint32_t client = sonde.client(fenetre);
            if (connus.count(client) || connus.size() + attente.size() >= clientsMax ||
                std::any_of(attente.begin(), attente.end(),
                            [&](const auto& a) { return a.first == client; }))
                continue;
            xcb_res_client_id_spec_t spec{fenetre, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
            attente.push_back({client, xcb_res_query_client_ids(c, 1, &spec)});
        }
        for (auto& [client, cookie] : attente) {
            pid_t pid = 0;
            auto ids = reponse(xcb_res_query_client_ids_reply(c, cookie, nullptr));
            if (ids)
                for (auto it = xcb_res_query_client_ids_ids_iterator(ids.get()); it.rem;
                     xcb_res_client_id_value_next(&it))
                    if ((it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) &&
                        xcb_res_client_id_value_value_length(it.data) >= 1)
                        pid = static_cast<pid_t>(xcb_res_client_id_value_value(it.data)[0]);
            connus[client] = pid;
        }
    }
    pid_t pid(xcb_window_t fenetre) const {
        const auto trouve = connus.find(sonde.client(fenetre));
        return trouve == connus.end() ? 0 : trouve->second;
    }

    Bilan lire(xcb_window_t racineEcran, pid_t agent, const std::vector<RectX>& moniteurs) {
        racine = racineEcran;
        ecrans = moniteurs;
        Bilan bilan;
        std::vector<xcb_window_t> hauts = enfants(racine);
        if (hauts.size() > sommetsMax) hauts.erase(hauts.begin(), hauts.end() - sommetsMax);
        pids(hauts);
        lireSommets(hauts, bilan);
        for (Sommet& s : bilan.sommets) {
            if (s.pid != agent) continue;
            s.aAgent = bilan.agentVu = true;
            if (s.visible) {
                bilan.agentVisible = true;
                if (entier({{s.id, s.interieur}}, s.interieur)) s.voiles.push_back(s.interieur);
            }
        }
        // Frames are opened from the top, a few more each time, until every monitor shows one
        // of the agent's windows: what is below does not change the verdict, and a look stays
        // cheap while the veil is up.
        std::size_t fin = bilan.sommets.size(), pas = 1;
        while (fin > 0 && !couverts(bilan, fin, moniteurs)) {
            const std::size_t debut = fin > pas ? fin - pas : 0;
            std::vector<Noeud> noeuds = descendre(bilan, agent, debut, fin, moniteurs);
            std::vector<xcb_window_t> ids;
            for (const Noeud& n : noeuds)
                ids.push_back(n.id);
            pids(ids);
            lireNoeudsDeLAgent(noeuds, agent, bilan);
            fin = debut;
            pas *= 2;
        }
        return bilan;
    }

private:
    void lireSommets(const std::vector<xcb_window_t>& hauts, Bilan& bilan) {
        std::vector<std::pair<xcb_get_window_attributes_cookie_t, xcb_get_geometry_cookie_t>> q;
        for (xcb_window_t f : hauts)
            q.push_back({xcb_get_window_attributes(c, f), xcb_get_geometry(c, f)});
        for (std::size_t i = 0; i < hauts.size(); ++i) {
            auto attributs = reponse(xcb_get_window_attributes_reply(c, q[i].first, nullptr));
            auto geometrie = reponse(xcb_get_geometry_reply(c, q[i].second, nullptr));
            if (!attributs || !geometrie) continue; // gone meanwhile
            Sommet s;
            s.id = hauts[i];
            s.pid = pid(hauts[i]);
            s.visible = attributs->map_state == XCB_MAP_STATE_VIEWABLE;
            s.sortie = attributs->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
            const std::int32_t bord = geometrie->border_width;
            s.exterieur = {geometrie->x, geometrie->y, geometrie->width + 2 * bord,
                           geometrie->height + 2 * bord};
            s.interieur = {geometrie->x + bord, geometrie->y + bord, geometrie->width,
                           geometrie->height};
            bilan.sommets.push_back(std::move(s));
        }
    }

    static bool couverts(const Bilan& bilan, std::size_t depuis,
                         const std::vector<RectX>& moniteurs) {
        return std::all_of(moniteurs.begin(), moniteurs.end(), [&](const RectX& m) {
            return std::any_of(bilan.sommets.begin() + static_cast<std::ptrdiff_t>(depuis),
                               bilan.sommets.end(), [&](const Sommet& s) {
                                   return s.visible &&
                                          std::any_of(s.voiles.begin(), s.voiles.end(),
                                                      [&](const RectX& v) { return v.couvre(m); });
                               });
        });
    }

    // The children and grandchildren of the viewable top-levels of other clients that show on
    // a monitor, where a window manager puts the agent's windows.
    std::vector<Noeud> descendre(const Bilan& bilan, pid_t agent, std::size_t debut,
                                 std::size_t fin, const std::vector<RectX>& moniteurs) {
        std::vector<Noeud> noeuds;
        std::vector<std::pair<int, xcb_query_tree_cookie_t>> q;
        for (std::size_t i = debut; i < fin; ++i) {
            const Sommet& s = bilan.sommets[i];
            const std::uint32_t client = sonde.client(s.id);
            if (s.visible && s.pid != agent && client != sonde.nous() && client != 0 &&
                std::any_of(moniteurs.begin(), moniteurs.end(),
                            [&](const RectX& m) { return s.exterieur.coupe(m); }))
                q.push_back({static_cast<int>(i), xcb_query_tree(c, s.id)});
        }
        for (auto& [sommet, cookie] : q)
            for (xcb_window_t f : enfants(cookie))
                if (examines++ < noeudsMax)
                    noeuds.push_back(Noeud{f, static_cast<std::size_t>(sommet), -1, 0, {}, false});
        const std::size_t premiers = noeuds.size();
        std::vector<xcb_query_tree_cookie_t> q2;
        for (std::size_t i = 0; i < premiers; ++i)
            q2.push_back(xcb_query_tree(c, noeuds[i].id));
        for (std::size_t i = 0; i < premiers; ++i)
            for (xcb_window_t f : enfants(q2[i]))
                if (examines++ < noeudsMax)
                    noeuds.push_back(Noeud{f, noeuds[i].sommet, static_cast<int>(i), 0, {}, false});
        return noeuds;
    }

    void lireNoeudsDeLAgent(std::vector<Noeud>& noeuds, pid_t agent, Bilan& bilan) {
        std::vector<bool> utile(noeuds.size());
        for (std::size_t i = 0; i < noeuds.size(); ++i) {
            noeuds[i].pid = pid(noeuds[i].id);
            if (noeuds[i].pid != agent) continue;
            utile[i] = true;
            if (noeuds[i].parent >= 0) utile[static_cast<std::size_t>(noeuds[i].parent)] = true;
        }
        struct Questions {
            xcb_get_window_attributes_cookie_t attributs;
            xcb_get_geometry_cookie_t geometrie;
            xcb_translate_coordinates_cookie_t position;
        };
        std::map<std::size_t, Questions> q;
        for (std::size_t i = 0; i < noeuds.size(); ++i)
            if (utile[i])
                q[i] = {xcb_get_window_attributes(c, noeuds[i].id),
                        xcb_get_geometry(c, noeuds[i].id),
                        xcb_translate_coordinates(c, noeuds[i].id, racine, 0, 0)};
        for (auto& [i, questions] : q) {
            auto attributs =
                reponse(xcb_get_window_attributes_reply(c, questions.attributs, nullptr));
            auto geometrie = reponse(xcb_get_geometry_reply(c, questions.geometrie, nullptr));
            auto position =
                reponse(xcb_translate_coordinates_reply(c, questions.position, nullptr));
            if (!attributs || !geometrie || !position) continue;
            noeuds[i].visible = attributs->map_state == XCB_MAP_STATE_VIEWABLE;
            noeuds[i].interieur = {position->dst_x, position->dst_y, geometrie->width,
                                   geometrie->height};
        }
        for (std::size_t i = 0; i < noeuds.size(); ++i) {
            if (noeuds[i].pid != agent) continue;
            Sommet& s = bilan.sommets[noeuds[i].sommet];
            s.aAgent = bilan.agentVu = true;
            if (!noeuds[i].visible) continue;
            bilan.agentVisible = true;
            // What a parent clips is not shown, however large the window inside it.
            RectX montre = noeuds[i].interieur.inter(s.interieur);
            std::vector<std::pair<xcb_window_t, RectX>> chaine{{noeuds[i].id, noeuds[i].interieur},
                                                               {s.id, s.interieur}};
            if (noeuds[i].parent >= 0) {
                const Noeud& parent = noeuds[static_cast<std::size_t>(noeuds[i].parent)];
                montre = montre.inter(parent.interieur);
                chaine.push_back({parent.id, parent.interieur});
            }
            if (entier(chaine, montre)) s.voiles.push_back(montre);
        }
    }

    // Whether no window from the agent's to its top-level is shaped so as to hide part of a
    // monitor that `montre` covers.
    bool entier(const std::vector<std::pair<xcb_window_t, RectX>>& chaine, const RectX& montre) {
        for (const RectX& m : ecrans)
            if (montre.couvre(m))
                for (const auto& [fenetre, interieur] : chaine)
                    if (!sonde.formeCouvre(fenetre, interieur, m)) return false;
        return true;
    }

    xcb_connection_t* c;
    xcb_window_t racine = 0;
    std::vector<RectX> ecrans; // the monitors of this root
    const SondeX& sonde;
    std::map<std::uint32_t, pid_t> connus;
    std::size_t examines = 0; // windows inside top-levels, over the whole look
};

// Why the veil is not up on `moniteur`, empty when it is: the agent's highest window that covers
// it, with no other client's window above that shows on it.
std::string raisonSur(const Bilan& bilan, const RectX& moniteur, const SondeX& sonde) {
    const auto& s = bilan.sommets;
    std::size_t haut = s.size();
    while (haut-- > 0) {
        if (!s[haut].visible) continue;
        if (std::any_of(s[haut].voiles.begin(), s[haut].voiles.end(),
                        [&](const RectX& v) { return v.couvre(moniteur); }))
            break;
    }
    if (haut == static_cast<std::size_t>(-1)) {
        if (!bilan.agentVu) return "aucune_fenetre";
        if (!bilan.agentVisible) return "non_visible";
        return "non_couvert";
    }
    // Neither the guardian's own notice nor the server's own windows count: a compositor's
    // overlay, the server's, is above everything while the compositor shows what is below.
    for (std::size_t j = haut + 1; j < s.size(); ++j)
        if (s[j].visible && s[j].sortie && !s[j].aAgent && s[j].exterieur.coupe(moniteur) &&
            sonde.client(s[j].id) != sonde.nous() && sonde.client(s[j].id) != 0)
            return "recouvert";
    return {};
}

} // namespace

RegardX SondeX::voile(pid_t agent) {
    RegardX regard;
    if (agent == 0) {
        regard.voile = EtatVoile::absent;
        regard.raison = "sans_agent";
        return regard;
    }
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_res_id);
    if (!ext || !ext->present) return regard; // whose windows they are, this server cannot say
    Lecteur lecteur(*this);
    const auto tous = moniteurs();
    std::map<xcb_window_t, Bilan> bilans;
    for (const auto& [racine, moniteur] : tous) {
        auto trouve = bilans.find(racine);
        if (trouve == bilans.end()) {
            std::vector<RectX> siens;
            for (const auto& [autreRacine, autre] : tous)
                if (autreRacine == racine) siens.push_back(autre);
            trouve = bilans.emplace(racine, lecteur.lire(racine, agent, siens)).first;
        }
        if (enErreur()) return RegardX{};
        const std::string raison = raisonSur(trouve->second, moniteur, *this);
        if (!raison.empty()) {
            regard.voile = EtatVoile::absent;
            regard.raison = raison;
            return regard;
        }
    }
    if (enErreur()) return RegardX{};
    regard.voile = EtatVoile::present;
    return regard;
}

} // namespace tavi
