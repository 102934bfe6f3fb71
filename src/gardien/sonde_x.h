#pragma once

#include "gardien/regards.h"
#include "gardien/sonde_x_garde.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>
#include <xcb/xcb.h>

namespace tavi {

// An XCB reply, freed with the C allocator XCB took it from.
template <typename T>
using Reponse = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
Reponse<T> reponse(T* brute) {
    return Reponse<T>(brute, &std::free);
}

// A rectangle in the root window's coordinates.
struct RectX {
    std::int32_t x = 0, y = 0, largeur = 0, hauteur = 0;
    bool couvre(const RectX& autre) const;
    bool coupe(const RectX& autre) const;
    RectX inter(const RectX& autre) const;
};

// The display number of a local display name (":0", ":1.0"); absent for anything else, a
// remote display above all.
std::optional<int> numeroAffichage(const std::string& affichage);

// One connection of the guardian to one X server, used by one worker thread; each call is a
// few round trips that block until the X server answers or the watchdog shuts the socket down.
class SondeX {
public:
    // Tries the display manager's authority, then the child's files, then none. Absent when
    // no attempt got in.
    static std::unique_ptr<SondeX> ouvrir(const AccesX& acces, GardeX& garde);
    ~SondeX();
    SondeX(const SondeX&) = delete;
    SondeX& operator=(const SondeX&) = delete;

    bool enErreur() const;
    xcb_connection_t* connexion() const { return c; }
    // The part of a resource id that names its client: the server's, not a property's.
    std::uint32_t client(std::uint32_t ressource) const { return ressource & ~masque; }
    std::uint32_t nous() const { return client(base); }

    std::optional<double> inactiviteS();
    // The veil of process `agent` on every monitor: present, or absent with the reason.
    RegardX voile(pid_t agent);
    // Each screen's monitors (RandR), or its whole root window.
    std::vector<std::pair<xcb_window_t, RectX>> moniteurs();
    // Whether the shapes of `fenetre`, whose inside is `interieur`, leave `zone` whole.
    bool formeCouvre(xcb_window_t fenetre, const RectX& interieur, const RectX& zone) const;

private:
    SondeX(xcb_connection_t* connexion, GardeX& gardeSocket);
    xcb_connection_t* c;
    GardeX& surveillance;
    std::uint32_t base = 0, masque = 0;
};

} // namespace tavi
