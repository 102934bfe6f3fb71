#include "gardien/sonde_x.h"

#include "gardien/autorite_x.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/screensaver.h>

namespace tavi {
namespace {

// Only the socket in the file system: its folder is root's, while any user may take the
// abstract name of a display whose server does not hold it.
int socketVers(int numero) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    sockaddr_un adresse{};
    adresse.sun_family = AF_UNIX;
    const std::string chemin = "/tmp/.X11-unix/X" + std::to_string(numero);
    chemin.copy(adresse.sun_path, sizeof adresse.sun_path - 1);
    // A local stream socket connects at once or not at all (EAGAIN when its queue is full).
    if (connect(fd, reinterpret_cast<sockaddr*>(&adresse), sizeof adresse) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

} // namespace

bool RectX::couvre(const RectX& autre) const {
    return x <= autre.x && y <= autre.y && x + largeur >= autre.x + autre.largeur &&
           y + hauteur >= autre.y + autre.hauteur;
}

bool RectX::coupe(const RectX& autre) const {
    return x < autre.x + autre.largeur && autre.x < x + largeur && y < autre.y + autre.hauteur &&
           autre.y < y + hauteur;
}

RectX RectX::inter(const RectX& autre) const {
    const std::int32_t gauche = std::max(x, autre.x), haut = std::max(y, autre.y);
    const std::int32_t droite = std::min(x + largeur, autre.x + autre.largeur);
    const std::int32_t bas = std::min(y + hauteur, autre.y + autre.hauteur);
    return {gauche, haut, std::max(0, droite - gauche), std::max(0, bas - haut)};
}

std::optional<int> numeroAffichage(const std::string& affichage) {
    if (affichage.size() < 2 || affichage[0] != ':') return std::nullopt;
    const std::size_t fin = std::min(affichage.find('.'), affichage.size());
    const std::string chiffres = affichage.substr(1, fin - 1);
    if (chiffres.empty() || chiffres.size() > 5 ||
        !std::all_of(chiffres.begin(), chiffres.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    return std::stoi(chiffres);
}

std::unique_ptr<SondeX> SondeX::ouvrir(const AccesX& acces, GardeX& garde) {
    const auto numero = numeroAffichage(acces.affichage);
    if (!numero) return nullptr;
    // Each attempt is a fresh socket: an X server closes the one it refused.
    std::vector<std::optional<AutoriteX>> essais;
    essais.emplace_back(); // the server's own, looked up once connected
    for (const auto& chemin : acces.autorites) {
        if (essais.size() > 8) break;
        if (const auto octets = AutoritesX::lireFichierDe(chemin, acces.uid))
            if (auto autorite = AutoritesX::cookie(*octets, *numero))
                essais.emplace_back(std::move(autorite));
    }
    essais.emplace_back(AutoriteX{}); // none
    for (auto& essai : essais) {
        const int fd = socketVers(*numero);
        if (fd < 0) return nullptr;
        if (!essai) {
            essai = AutoritesX::duServeur(fd);
            if (!essai) {
                close(fd);
                continue;
            }
        }
        if (!garde.prendre(fd)) {
            close(fd);
            return nullptr;
        }
        xcb_auth_info_t info{};
        if (!essai->nom.empty()) {
            info.namelen = static_cast<int>(essai->nom.size());
            info.name = essai->nom.data();
            info.datalen = static_cast<int>(essai->donnees.size());
            info.data = essai->donnees.data();
        }
        const std::int64_t debut = monotoneMs();
        garde.debut(debut);
        // XCB owns the socket from here, closing it on failure too.
        xcb_connection_t* c = xcb_connect_to_fd(fd, essai->nom.empty() ? nullptr : &info);
        garde.fin();
        if (!xcb_connection_has_error(c)) return std::unique_ptr<SondeX>(new SondeX(c, garde));
        xcb_disconnect(c);
        garde.lacher();
        // A server that let the watchdog cut it will not answer the next attempt either.
        if (garde.arrete() || monotoneMs() - debut >= attenteMaxMs) return nullptr;
    }
    return nullptr;
}

SondeX::SondeX(xcb_connection_t* connexion, GardeX& gardeSocket)
    : c(connexion), surveillance(gardeSocket) {
    const xcb_setup_t* setup = xcb_get_setup(c);
    base = setup->resource_id_base;
    masque = setup->resource_id_mask;
}

SondeX::~SondeX() {
    xcb_disconnect(c);
    surveillance.lacher();
}

bool SondeX::enErreur() const {
    return xcb_connection_has_error(c) != 0;
}

std::optional<double> SondeX::inactiviteS() {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_screensaver_id);
    if (!ext || !ext->present) return std::nullopt;
    const xcb_screen_t* ecran = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (!ecran) return std::nullopt;
    auto info = reponse(
        xcb_screensaver_query_info_reply(c, xcb_screensaver_query_info(c, ecran->root), nullptr));
    if (!info) return std::nullopt;
    return info->ms_since_user_input / 1000.0;
}

std::vector<std::pair<xcb_window_t, RectX>> SondeX::moniteurs() {
    constexpr std::size_t moniteursMax = 16;
    std::vector<std::pair<xcb_window_t, RectX>> resultat;
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_randr_id);
    bool randr = false;
    if (ext && ext->present) {
        auto version =
            reponse(xcb_randr_query_version_reply(c, xcb_randr_query_version(c, 1, 5), nullptr));
        randr = version && (version->major_version > 1 || version->minor_version >= 5);
    }
    for (auto it = xcb_setup_roots_iterator(xcb_get_setup(c));
         it.rem && resultat.size() < moniteursMax; xcb_screen_next(&it)) {
        const xcb_screen_t* ecran = it.data;
        std::size_t avant = resultat.size();
        if (randr) {
            auto liste = reponse(xcb_randr_get_monitors_reply(
                c, xcb_randr_get_monitors(c, ecran->root, 1), nullptr));
            if (liste)
                for (auto m = xcb_randr_get_monitors_monitors_iterator(liste.get());
                     m.rem && resultat.size() < moniteursMax; xcb_randr_monitor_info_next(&m))
                    if (m.data->width > 0 && m.data->height > 0)
                        resultat.push_back(
                            {ecran->root, {m.data->x, m.data->y, m.data->width, m.data->height}});
        }
        if (resultat.size() == avant)
            resultat.push_back(
                {ecran->root, {0, 0, ecran->width_in_pixels, ecran->height_in_pixels}});
    }
    return resultat;
}

} // namespace tavi
