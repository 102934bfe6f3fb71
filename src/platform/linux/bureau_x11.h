#pragma once

#include "platform/bureau.h"
#include "platform/linux/affichage_x11.h"
#include "platform/linux/indices_fenetre.h"

#include <functional>
#include <memory>
#include <optional>

namespace tavi {

// Names the application behind a window's hints; absent when no desktop entry matches.
using ResolveurAppli = std::function<std::optional<IdentiteAppli>(const IndicesFenetre&)>;

// The desktop as an EWMH window manager publishes it on the X server: the front window
// (_NET_ACTIVE_WINDOW), the managed windows (_NET_CLIENT_LIST), the process of each window's
// client as the X server knows it (X-Resource's client ids), and what the window says of its
// application (WM_CLASS, _GTK_APPLICATION_ID), named through `resoudre`.
//
// The class and GTK id are written by the client itself and only tell what it claims: the
// resolver names an application from its process. A window it cannot name is still an
// application, without an identifier, named after its WM_CLASS.
//
// The front window's hints are kept between calls and read again only when the server reports
// a change, so a tick costs no round trip while the same window stays in front.
class BureauX11 : public Bureau {
public:
    // `affichage` null: no X server, nothing is observed. `premierPlanPossible` answers false
    // where the front window is not X's to tell (a Wayland session, where X sees only its own
    // clients); it is asked at each reading. Empty: always possible.
    BureauX11(std::shared_ptr<AffichageX11> affichage, ResolveurAppli resoudre,
              std::function<bool()> premierPlanPossible = {});
    ~BureauX11() override;
    BureauX11(const BureauX11&) = delete;
    BureauX11& operator=(const BureauX11&) = delete;

    std::optional<Application> applicationAuPremierPlan() const override;
    std::vector<Application> applicationsOuvertes() const override;
    // Iconifies each managed window whose pid and identity are the application's.
    void masquer(const Application& application) override;
    std::int64_t notrePid() const override;
    [[nodiscard]] std::unique_ptr<Abonnement>
    observerActivation(std::function<void(const Application&)> quand) override;
    // An X connection, and a window manager that says it keeps _NET_ACTIVE_WINDOW.
    bool premierPlanObservable() const override;

    // What the front window tells, for diagnostics; absent when no window is in front.
    std::optional<IndicesFenetre> indicesAuPremierPlan() const;

private:
    struct Etat;
    std::shared_ptr<Etat> etat;
};

} // namespace tavi
