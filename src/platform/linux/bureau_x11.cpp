#include "platform/linux/bureau_x11.h"

#include "generique/utf8.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>
#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace tavi {

namespace {

using Fenetre = AffichageX11::Fenetre;

// Real class names and application ids are a few dozen bytes; anything longer is a client
// playing games, and is not read at all.
constexpr std::size_t maxTexte = 256;
// A window manager lists a few dozen windows. Any client may rewrite the root's list, and each
// listed window costs round trips: past this many, the rest is not looked at.
constexpr std::size_t maxFenetres = 1024;
// _NET_SUPPORTED names a few hundred atoms.
constexpr std::size_t maxAtomesWm = 4096;

// A hint that is not clean UTF-8 or holds control characters is dropped: it would end up in
// JSON and in the diagnostics' output.
std::string texteSur(std::string_view texte) {
    if (texte.size() > maxTexte || !utf8Valide(texte)) return {};
    for (const unsigned char c : texte) {
        if (c < 0x20 || c == 0x7f) return {};
    }
    return std::string(texte);
}

bool memeAppli(const Application& a, const Application& b) {
    return a.pid == b.pid && a.identifiant == b.identifiant && (a.identifiant || a.nom == b.nom);
}

class ActivationX11 : public Abonnement {
public:
    explicit ActivationX11(std::function<void()> aLaFin) : fin(std::move(aLaFin)) {}
    ~ActivationX11() override { fin(); }

private:
    std::function<void()> fin;
};

} // namespace

struct BureauX11::Etat : std::enable_shared_from_this<Etat> {
    std::shared_ptr<AffichageX11> affichage;
    ResolveurAppli resoudre;
    std::function<bool()> premierPlanPossible;
    std::unique_ptr<Abonnement> changements;

    struct {
        AffichageX11::Atome fenetreActive = 0, idGtk = 0, utf8 = 0, clients = 0, verificationWm = 0,
                            pris = 0;
    } atomes;

    // What is known is right until the server reports a change of it.
    bool wmAJour = false;
    bool wmPresent = false;
    Fenetre fenetreWm = 0;
    bool frontAJour = false;
    Fenetre active = 0;
    std::optional<IndicesFenetre> indices;

    std::map<int, std::shared_ptr<std::function<void(const Application&)>>> observateurs;
    int prochainObservateur = 0;
    bool verificationPostee = false;
    std::optional<Application> dernierAnnonce;

    ~Etat() {
        if (affichage) {
            affichage->suivre(active, false);
            affichage->suivre(fenetreWm, false);
        }
    }

    void surChangement(const ChangementX11& c) {
        const bool racine = c.fenetre == affichage->racine();
        if (racine && c.propriete == atomes.fenetreActive) {
            frontAJour = false;
        } else if ((racine &&
                    (c.propriete == atomes.verificationWm || c.propriete == atomes.pris)) ||
                   (c.fenetre == fenetreWm && c.propriete == 0)) {
            wmAJour = false;
        } else if (c.fenetre == active && c.fenetre != 0 &&
                   (c.propriete == 0 || c.propriete == XA_WM_CLASS ||
                    c.propriete == atomes.idGtk)) {
            frontAJour = false;
        } else {
            return;
        }
        planifierVerification();
    }

    // The observers are called from the loop, never while the events are read.
    void planifierVerification() {
        if (observateurs.empty() || verificationPostee) return;
        verificationPostee = true;
        affichage->boucle().poster([faible = weak_from_this()] {
            auto lui = faible.lock();
            if (!lui) return;
            lui->verificationPostee = false;
            lui->verifierActivation();
        });
    }

    void verifierActivation() {
        std::optional<Application> front;
        {
            AffichageX11::Appel appel(*affichage);
            front = application(indicesFront());
        }
        // Between two windows the manager may leave none in front for a moment: coming back
        // to the same application from there is no activation.
        if (!front || front == dernierAnnonce) return;
        dernierAnnonce = front;
        // A copy: an observer may end its subscription, or the desktop object itself.
        auto ceux = observateurs;
        for (const auto& [numero, quand] : ceux)
            (*quand)(*front);
    }

    bool observable() {
        if ((premierPlanPossible && !premierPlanPossible()) || !affichage->connecte()) return false;
        if (!wmAJour) {
            wmAJour = true;
            wmPresent = false;
            const Fenetre racine = affichage->racine();
            const auto verification =
                affichage->lireMots(racine, atomes.verificationWm, XA_WINDOW, 1);
            const Fenetre wm = verification && !verification->empty() ? verification->front() : 0;
            if (wm != fenetreWm) {
                affichage->suivre(fenetreWm, false);
                affichage->suivre(wm, true);
                fenetreWm = wm;
            }
            // The manager's own window names itself: a stale root property left by a manager
            // that died points to a window that is gone or says otherwise.
            const auto soi = affichage->lireMots(wm, atomes.verificationWm, XA_WINDOW, 1);
            if (soi && soi->size() == 1 && soi->front() == wm) {
                const auto pris = affichage->lireMots(racine, atomes.pris, XA_ATOM, maxAtomesWm);
                wmPresent = pris && std::find(pris->begin(), pris->end(), atomes.fenetreActive) !=
                                        pris->end();
            }
        }
        return wmPresent && affichage->connecte();
    }

    std::optional<IndicesFenetre> indicesFront() {
        if (!observable()) return std::nullopt;
        if (!frontAJour) {
            // Taken as known before the reads: a change reported during them makes it stale
            // again.
            frontAJour = true;
            const auto lue =
                affichage->lireMots(affichage->racine(), atomes.fenetreActive, XA_WINDOW, 1);
            const Fenetre nouvelle = lue && !lue->empty() ? lue->front() : 0;
            if (nouvelle != active) {
                if (active != fenetreWm) affichage->suivre(active, false);
                // Followed before it is read, so that no change falls between the two.
                affichage->suivre(nouvelle, true);
                active = nouvelle;
            }
            indices = active ? lireIndices(active) : std::nullopt;
        }
        return indices;
    }

    // The process of the client that made the window, as the X server knows it from its
    // socket's peer credentials (X-Resource); _NET_WM_PID is what the client claims. 0 for a
    // client the server cannot tell (a remote one) or a server without the extension.
    std::int64_t pidClient(Fenetre fenetre) {
        Display* connexion = affichage->connexion();
        if (!connexion || !xresPresent(connexion)) return 0;
        XResClientIdSpec demande{fenetre, XRES_CLIENT_ID_PID_MASK};
        long nombre = 0;
        XResClientIdValue* valeurs = nullptr;
        if (XResQueryClientIds(connexion, 1, &demande, &nombre, &valeurs) != Success) return 0;
        std::int64_t pid = 0;
        for (long i = 0; i < nombre; ++i)
            if (XResGetClientIdType(&valeurs[i]) == XRES_CLIENT_ID_PID)
                if (const pid_t lu = XResGetClientPid(&valeurs[i]); lu > 0) pid = lu;
        XResClientIdsDestroy(nombre, valeurs);
        return pid;
    }

    std::optional<bool> xres;
    bool xresPresent(Display* connexion) {
        if (!xres) {
            int evenement = 0, erreur = 0, majeure = 0, mineure = 0;
            // Client ids came with version 1.2.
            xres = XResQueryExtension(connexion, &evenement, &erreur) &&
                   XResQueryVersion(connexion, &majeure, &mineure) &&
                   (majeure > 1 || (majeure == 1 && mineure >= 2));
        }
        return *xres;
    }

    std::optional<IndicesFenetre> lireIndices(Fenetre fenetre) {
        IndicesFenetre lus;
        lus.pid = pidClient(fenetre);
        // WM_CLASS holds two texts, each ended by a NUL: the instance, then the class.
        if (const auto classe =
                affichage->lireOctets(fenetre, XA_WM_CLASS, XA_STRING, 2 * maxTexte + 2)) {
            const std::string_view tout(*classe);
            const auto fin = tout.find('\0');
            lus.instance = texteSur(tout.substr(0, fin));
            if (fin != std::string_view::npos) {
                const auto reste = tout.substr(fin + 1);
                lus.classe = texteSur(reste.substr(0, reste.find('\0')));
            }
        }
        if (const auto id = affichage->lireOctets(fenetre, atomes.idGtk, atomes.utf8, maxTexte)) {
            lus.idGtk = texteSur(*id);
        }
        // The server answers for the client of any id it could have made, window or not: a
        // window that sets nothing must still be there.
        if (lus.classe.empty() && lus.instance.empty() && lus.idGtk.empty()) {
            XWindowAttributes attributs{};
            Display* connexion = affichage->connexion();
            if (!connexion || !XGetWindowAttributes(connexion, fenetre, &attributs))
                return std::nullopt;
        }
        if (lus == IndicesFenetre{}) return std::nullopt;
        return lus;
    }

    std::optional<Application> application(const std::optional<IndicesFenetre>& lus) const {
        if (!lus) return std::nullopt;
        Application appli;
        appli.pid = lus->pid;
        if (const auto identite = resoudre ? resoudre(*lus) : std::nullopt) {
            if (!identite->identifiant.empty()) appli.identifiant = identite->identifiant;
            appli.nom = identite->nom;
            appli.emplacement = identite->emplacement;
        } else {
            appli.nom = !lus->classe.empty()  ? lus->classe
                        : !lus->idGtk.empty() ? lus->idGtk
                                              : lus->instance;
        }
        return appli;
    }

    std::vector<Fenetre> clients() {
        auto liste =
            affichage->lireMots(affichage->racine(), atomes.clients, XA_WINDOW, maxFenetres);
        return liste ? std::move(*liste) : std::vector<Fenetre>{};
    }
};

BureauX11::BureauX11(std::shared_ptr<AffichageX11> affichage, ResolveurAppli resoudre,
                     std::function<bool()> premierPlanPossible)
    : etat(std::make_shared<Etat>()) {
    etat->resoudre = std::move(resoudre);
    etat->premierPlanPossible = std::move(premierPlanPossible);
    if (!affichage || !affichage->connecte()) return;
    etat->affichage = std::move(affichage);
    auto& a = *etat->affichage;
    AffichageX11::Appel appel(a);
    etat->atomes = {a.atome("_NET_ACTIVE_WINDOW"),
                    a.atome("_GTK_APPLICATION_ID"),
                    a.atome("UTF8_STRING"),
                    a.atome("_NET_CLIENT_LIST"),
                    a.atome("_NET_SUPPORTING_WM_CHECK"),
                    a.atome("_NET_SUPPORTED")};
    etat->changements = a.observer([faible = std::weak_ptr<Etat>(etat)](const ChangementX11& c) {
        if (auto lui = faible.lock()) lui->surChangement(c);
    });
}

BureauX11::~BureauX11() = default;

std::optional<Application> BureauX11::applicationAuPremierPlan() const {
    if (!etat->affichage) return std::nullopt;
    AffichageX11::Appel appel(*etat->affichage);
    return etat->application(etat->indicesFront());
}

std::optional<IndicesFenetre> BureauX11::indicesAuPremierPlan() const {
    if (!etat->affichage) return std::nullopt;
    AffichageX11::Appel appel(*etat->affichage);
    return etat->indicesFront();
}

std::vector<Application> BureauX11::applicationsOuvertes() const {
    std::vector<Application> ouvertes;
    if (!etat->affichage) return ouvertes;
    AffichageX11::Appel appel(*etat->affichage);
    for (const Fenetre fenetre : etat->clients()) {
        const auto appli = etat->application(etat->lireIndices(fenetre));
        if (!appli) continue;
        const bool dejaVue =
            std::any_of(ouvertes.begin(), ouvertes.end(),
                        [&](const Application& a) { return memeAppli(a, *appli); });
        if (!dejaVue) ouvertes.push_back(*appli);
    }
    return ouvertes;
}

void BureauX11::masquer(const Application& application) {
    if (!etat->affichage) return;
    auto& affichage = *etat->affichage;
    AffichageX11::Appel appel(affichage);
    for (const Fenetre fenetre : etat->clients()) {
        const auto appli = etat->application(etat->lireIndices(fenetre));
        Display* connexion = affichage.connexion();
        if (!connexion) return;
        // The ICCCM request (WM_CHANGE_STATE to the root) every manager honours.
        if (appli && memeAppli(*appli, application))
            XIconifyWindow(connexion, fenetre, DefaultScreen(connexion));
    }
    if (Display* connexion = affichage.connexion()) XFlush(connexion);
}

std::int64_t BureauX11::notrePid() const {
    return getpid();
}

std::unique_ptr<Abonnement>
BureauX11::observerActivation(std::function<void(const Application&)> quand) {
    if (etat->affichage && etat->observateurs.empty()) {
        AffichageX11::Appel appel(*etat->affichage);
        etat->dernierAnnonce = etat->application(etat->indicesFront());
    }
    const int numero = etat->prochainObservateur++;
    etat->observateurs.emplace(
        numero, std::make_shared<std::function<void(const Application&)>>(std::move(quand)));
    return std::make_unique<ActivationX11>([faible = std::weak_ptr<Etat>(etat), numero] {
        if (auto lui = faible.lock()) lui->observateurs.erase(numero);
    });
}

bool BureauX11::premierPlanObservable() const {
    if (!etat->affichage) return false;
    AffichageX11::Appel appel(*etat->affichage);
    return etat->observable();
}

} // namespace tavi
