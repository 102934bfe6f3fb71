#include "platform/linux/affichage_x11.h"

#include "commun/journal.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>

namespace tavi {

namespace {

// The process's X error handlers are global to Xlib, ours and any other library's connections
// alike: they keep the handlers found before them for the connections that are not ours.
struct Gestionnaires {
    std::mutex verrou;
    std::set<Display*> notres;
    XErrorHandler erreurAvant = nullptr;
    XIOErrorHandler entreesSortiesAvant = nullptr;
};

Gestionnaires& gestionnaires() {
    static Gestionnaires g;
    return g;
}

bool estANous(Display* connexion) {
    auto& g = gestionnaires();
    std::lock_guard verrou(g.verrou);
    return g.notres.contains(connexion);
}

// A window vanishes between listing and reading it, a client sets nonsense: the failed request
// answers absent where it was made; Xlib's default would end the process.
int surErreur(Display* connexion, XErrorEvent* erreur) {
    if (estANous(connexion)) return 0;
    const auto avant = gestionnaires().erreurAvant;
    return avant ? avant(connexion, erreur) : 0;
}

// Xlib's default ends the process here; for our connection it returns, and the exit handler
// below takes note of the loss.
int surPerteServeur(Display* connexion) {
    if (estANous(connexion)) return 0;
    const auto avant = gestionnaires().entreesSortiesAvant;
    return avant ? avant(connexion) : 0;
}

void installerGestionnaires() {
    static std::once_flag fait;
    std::call_once(fait, [] {
        auto& g = gestionnaires();
        g.erreurAvant = XSetErrorHandler(surErreur);
        g.entreesSortiesAvant = XSetIOErrorHandler(surPerteServeur);
    });
}

class ObservationX11 : public Abonnement {
public:
    explicit ObservationX11(std::function<void()> aLaFin) : fin(std::move(aLaFin)) {}
    ~ObservationX11() override { fin(); }

private:
    std::function<void()> fin;
};

} // namespace

std::shared_ptr<AffichageX11> AffichageX11::ouvrir(Boucle& boucle, const std::string& nom) {
    Display* connexion = XOpenDisplay(nom.empty() ? nullptr : nom.c_str());
    if (!connexion) return nullptr;
    installerGestionnaires();
    {
        auto& g = gestionnaires();
        std::lock_guard verrou(g.verrou);
        g.notres.insert(connexion);
    }
    std::shared_ptr<AffichageX11> affichage(new AffichageX11(boucle, connexion));
    XSetIOErrorExitHandler(
        connexion,
        [](Display*, void* donnees) {
            auto* lui = static_cast<AffichageX11*>(donnees);
            if (!lui->perdu_)
                journaliser("x11: the X server is gone; the display is no longer observed");
            lui->perdu_ = true;
        },
        affichage.get());

    // The front window, the window manager and the client list are the root's properties.
    XSelectInput(connexion, affichage->racine_, PropertyChangeMask);
    std::weak_ptr<AffichageX11> faible = affichage;
    affichage->surveillance = boucle.surveiller(ConnectionNumber(connexion), [faible] {
        if (auto lui = faible.lock()) lui->lireEvenements(true);
    });
    XFlush(connexion);
    return affichage;
}

AffichageX11::AffichageX11(Boucle& boucle, Display* connexion)
    : boucle_(boucle), connexion_(connexion), racine_(DefaultRootWindow(connexion)) {}

AffichageX11::~AffichageX11() {
    surveillance.reset();
    // Xlib checks for a lost connection and only frees memory then.
    XCloseDisplay(connexion_);
    auto& g = gestionnaires();
    std::lock_guard verrou(g.verrou);
    g.notres.erase(connexion_);
}

bool AffichageX11::connecte() const {
    return !perdu_;
}

Display* AffichageX11::connexion() const {
    return perdu_ ? nullptr : connexion_;
}

AffichageX11::Atome AffichageX11::atome(const char* nom) {
    if (const auto trouve = atomes.find(nom); trouve != atomes.end()) return trouve->second;
    if (perdu_) return 0;
    const Atom a = XInternAtom(connexion_, nom, False);
    if (!perdu_) atomes.emplace(nom, a);
    return perdu_ ? 0 : a;
}

std::unique_ptr<Abonnement>
AffichageX11::observer(std::function<void(const ChangementX11&)> quand) {
    const int numero = prochainObservateur++;
    observateurs.emplace(
        numero, std::make_shared<std::function<void(const ChangementX11&)>>(std::move(quand)));
    return std::make_unique<ObservationX11>([faible = weak_from_this(), numero] {
        if (auto lui = faible.lock()) lui->observateurs.erase(numero);
    });
}

void AffichageX11::suivre(Fenetre fenetre, bool suivi) {
    if (perdu_ || fenetre == 0 || fenetre == racine_) return;
    // Each client has its own selection on a window: ours leaves the others' alone. A window
    // already gone answers BadWindow, which our handler drops.
    XSelectInput(connexion_, fenetre,
                 suivi ? PropertyChangeMask | StructureNotifyMask : NoEventMask);
}

std::optional<std::vector<unsigned long>> AffichageX11::lireMots(Fenetre fenetre, Atome propriete,
                                                                 Atome type, std::size_t maxMots) {
    if (perdu_ || fenetre == 0 || propriete == 0 || maxMots == 0) return std::nullopt;
    Atom typeLu = 0;
    int format = 0;
    unsigned long nombre = 0, reste = 0;
    unsigned char* donnees = nullptr;
    const int statut =
        XGetWindowProperty(connexion_, fenetre, propriete, 0, static_cast<long>(maxMots), False,
                           type, &typeLu, &format, &nombre, &reste, &donnees);
    std::optional<std::vector<unsigned long>> mots;
    // Format 32 comes as an array of C longs, whatever their size.
    if (statut == Success && !perdu_ && typeLu == type && format == 32 && donnees) {
        const auto* debut = reinterpret_cast<const unsigned long*>(donnees);
        mots.emplace(debut, debut + std::min<unsigned long>(nombre, maxMots));
        // The server sends 32 bits; Xlib widens them, but keep nothing beyond.
        for (auto& mot : *mots)
            mot &= 0xffffffffUL;
    }
    if (donnees) XFree(donnees);
    return mots;
}

std::optional<std::string> AffichageX11::lireOctets(Fenetre fenetre, Atome propriete, Atome type,
                                                    std::size_t maxOctets) {
    if (perdu_ || fenetre == 0 || propriete == 0) return std::nullopt;
    Atom typeLu = 0;
    int format = 0;
    unsigned long nombre = 0, reste = 0;
    unsigned char* donnees = nullptr;
    // Lengths are asked in 32-bit units; one more than the bound tells a longer property.
    const long unites = static_cast<long>(maxOctets / 4 + 1);
    const int statut = XGetWindowProperty(connexion_, fenetre, propriete, 0, unites, False, type,
                                          &typeLu, &format, &nombre, &reste, &donnees);
    std::optional<std::string> octets;
    if (statut == Success && !perdu_ && typeLu == type && format == 8 && reste == 0 &&
        nombre <= maxOctets) {
        octets.emplace(donnees ? reinterpret_cast<const char*>(donnees) : "", donnees ? nombre : 0);
    }
    if (donnees) XFree(donnees);
    return octets;
}

void AffichageX11::lireEvenements(bool depuisLaSocket) {
    // A listener that calls back into the connection must not read the queue under our feet.
    if (enLecture || perdu_) return perdre();
    enLecture = true;
    if (depuisLaSocket) XEventsQueued(connexion_, QueuedAfterReading);
    while (!perdu_ && XEventsQueued(connexion_, QueuedAlready) > 0) {
        XEvent evenement;
        XNextEvent(connexion_, &evenement);
        ChangementX11 changement;
        if (evenement.type == PropertyNotify) {
            changement = {evenement.xproperty.window, evenement.xproperty.atom};
        } else if (evenement.type == DestroyNotify) {
            changement = {evenement.xdestroywindow.window, 0};
        } else {
            continue;
        }
        // Copies: a listener may end its own subscription, or another's.
        auto ceux = observateurs;
        for (const auto& [numero, quand] : ceux)
            (*quand)(changement);
    }
    enLecture = false;
    perdre();
}

void AffichageX11::perdre() {
    // At the end of its stream the descriptor stays readable for ever: stop watching it, or
    // the main loop would spin.
    if (perdu_ && surveillance) surveillance.reset();
}

AffichageX11::Appel::Appel(AffichageX11& lAffichage) : affichage(lAffichage) {
    affichage.lireEvenements(true);
}

AffichageX11::Appel::~Appel() {
    affichage.lireEvenements(false);
}

} // namespace tavi
