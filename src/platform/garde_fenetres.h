#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tavi {

// Keeps windows of ours as they must be against every other program of the session: mapped,
// where they were put, at their size, opaque, child of the root and above every other window
// that overlaps them. Where the display server lets any client unmap, move, resize or cover another
// client's window (X11), nothing can forbid it: the guard puts each window back as soon as the
// server tells it, and says what had been done.
//
// Main thread only.
class GardeFenetres {
public:
    // One native window and where it must stay, in the display server's pixels.
    struct Fenetre {
        unsigned long id = 0;
        int x = 0, y = 0, largeur = 0, hauteur = 0;
        bool operator==(const Fenetre&) const = default;
    };

    virtual ~GardeFenetres() = default;

    // Guards `fenetres` from now on, instead of those guarded before; none stops the guard.
    // A window is guarded once it has been seen mapped: its owner may still be mapping it.
    virtual void garder(std::vector<Fenetre> fenetres) = 0;

    // Called on the main thread once a window has been put back, with what had been done to it
    // ("démappé", "déplacé", "redimensionné", "transparent", "recouvert", "détaché", joined
    // by ", ").
    std::function<void(const std::string& detail)> quandRepare;
};

} // namespace tavi
