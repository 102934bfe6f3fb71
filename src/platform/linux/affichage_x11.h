#pragma once

#include "platform/abonnement.h"
#include "platform/boucle.h"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Xlib's own name for a connection (`Display`), declared here so that no X11 header reaches the
// headers of the program: its macros (`Status`, `Bool`, `None`) break Qt's.
struct _XDisplay;

namespace tavi {

// A change the X server reported on a window whose changes we asked for.
struct ChangementX11 {
    unsigned long fenetre = 0;
    unsigned long propriete = 0; // the atom of the changed property; 0: the window was destroyed
};

// Our own Xlib connection to the X server, apart from Qt's, shared by the X11 implementations
// of the ports. Main thread only.
//
// Every window property is written by some client we do not control, so every read is bounded
// and checked against the expected type and format. An X error (a window gone between listing
// and reading it) is an absent answer, never the end of the agent; the loss of the server turns
// every answer absent for good and the agent goes on without it.
//
// The descriptor of the connection is watched on the main loop. A round trip may pull events
// into Xlib's queue, after which the descriptor is no longer readable: each call made through
// `Appel` reads what waits before it and empties the queue after it, so that no event is left
// behind.
class AffichageX11 : public std::enable_shared_from_this<AffichageX11> {
public:
    using Fenetre = unsigned long;
    using Atome = unsigned long;

    // A connection to the display named `nom` ($DISPLAY when empty); null when none answers.
    // Installs the process's X error handlers the first time: they spare our connections and
    // hand the others' errors to the handlers installed before, so make this after Qt's own
    // connection (QGuiApplication installs process-wide handlers that end the program).
    static std::shared_ptr<AffichageX11> ouvrir(Boucle& boucle, const std::string& nom = {});
    ~AffichageX11();
    AffichageX11(const AffichageX11&) = delete;
    AffichageX11& operator=(const AffichageX11&) = delete;

    // False once the server is gone.
    bool connecte() const;
    // Null once the server is gone.
    _XDisplay* connexion() const;
    Fenetre racine() const { return racine_; }
    // Interned on first use, then from memory.
    Atome atome(const char* nom);

    // Calls `quand` for each change of a watched window (the root's properties, and what the
    // users asked with `suivre`) until the handle is destroyed. `quand` runs while the events
    // are read, possibly inside another call on this connection: it must only take note and
    // post whatever work follows.
    [[nodiscard]] std::unique_ptr<Abonnement>
    observer(std::function<void(const ChangementX11&)> quand);
    // Asks for the property changes and the destruction of `fenetre` (0: none), or stops.
    void suivre(Fenetre fenetre, bool suivi);

    // The property's 32-bit items (at most `maxMots`; a longer property gives its start), or
    // absent when it is missing, of another type or format, or the window is gone.
    std::optional<std::vector<unsigned long>> lireMots(Fenetre fenetre, Atome propriete, Atome type,
                                                       std::size_t maxMots);
    // The property's bytes, absent as above and also when longer than `maxOctets`.
    std::optional<std::string> lireOctets(Fenetre fenetre, Atome propriete, Atome type,
                                          std::size_t maxOctets);

    // Wraps each public call made on the connection (see above).
    class Appel {
    public:
        explicit Appel(AffichageX11& affichage);
        ~Appel();
        Appel(const Appel&) = delete;
        Appel& operator=(const Appel&) = delete;

    private:
        AffichageX11& affichage;
    };

    Boucle& boucle() const { return boucle_; }

private:
    AffichageX11(Boucle& boucle, _XDisplay* connexion);
    void lireEvenements(bool depuisLaSocket);
    void perdre();

    Boucle& boucle_;
    _XDisplay* connexion_;
    bool perdu_ = false;
    bool enLecture = false;
    Fenetre racine_ = 0;
    std::map<std::string, Atome> atomes;
    std::map<int, std::shared_ptr<std::function<void(const ChangementX11&)>>> observateurs;
    int prochainObservateur = 0;
    std::unique_ptr<Abonnement> surveillance;
};

} // namespace tavi
