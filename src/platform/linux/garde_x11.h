#pragma once

#include "platform/abonnement.h"
#include "platform/boucle.h"
#include "platform/garde_fenetres.h"

#include <chrono>
#include <memory>

// Declared here so that no X11 header reaches the program's headers.
struct xcb_connection_t;
struct _XDisplay;

namespace tavi {

// The guard on the X server, over a connection of its own: it listens to the structure changes
// of the root's children, which any client may ask for beside the window manager, and after
// each batch of them compares every guarded window with what it must be. A repair is made, and
// made visible to the server, before `quandRepare` is called: a grab taken then on the window
// finds it viewable.
class GardeX11 : public GardeFenetres {
public:
    // A connection to the display `qt` (Qt's connection) is on; null when none answers.
    static std::unique_ptr<GardeX11> ouvrir(Boucle& boucle, _XDisplay* qt);
    ~GardeX11() override;
    GardeX11(const GardeX11&) = delete;
    GardeX11& operator=(const GardeX11&) = delete;

    void garder(std::vector<Fenetre> fenetres) override;

private:
    struct Gardee {
        Fenetre voulue;
        bool vue = false; // seen mapped once: from then on, unmapped is someone else's doing
    };

    GardeX11(Boucle& boucle, xcb_connection_t* connexion, unsigned int racine);
    void lire();
    void verifierAuPlusTot();
    void verifier();

    Boucle& boucle_;
    xcb_connection_t* connexion_;
    unsigned int racine_;
    // _NET_WM_WINDOW_OPACITY: a compositor draws a window as transparent as any client says.
    unsigned int opacite_ = 0;
    std::vector<Gardee> gardees_;
    std::unique_ptr<Abonnement> surveillance_;
    // When a window was last only raised again.
    std::chrono::steady_clock::time_point derniereReparation_;
    bool verificationPrevue_ = false;
    // Lets the delayed arming know whether this guard, and the same set of windows, still exist.
    std::shared_ptr<int> generation_ = std::make_shared<int>(0);
};

} // namespace tavi
