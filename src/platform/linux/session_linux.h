#pragma once

#include "platform/boucle.h"
#include "platform/linux/ecran_x11.h"
#include "platform/linux/inhibitions.h"
#include "platform/linux/logind.h"
#include "platform/linux/moniteur_gnome.h"
#include "platform/session.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

class AffichageX11;
class BusSd;

// The session as Linux tells it: the lock, the seat and the remote flag from logind; the idle
// time from the X server in an X11 session, else from GNOME's idle monitor, else from
// logind's idle hint; display sleep held from the inhibitors; the screens' power from DPMS.
//
// The session's type is logind's alone ($XDG_SESSION_TYPE is the child's to set): it picks the
// idle source. In a Wayland session the X server (XWayland) sees only its own clients' input, so
// its idle time would grow while the child types elsewhere: it is never used there. Until
// logind answers, or where it cannot, an X display that answers makes an X11 session.
//
// Main thread only. The buses must outlive this object.
class SessionLinux : public Session {
public:
    SessionLinux(Boucle& boucle, BusSd& systeme, BusSd& sessionBureau,
                 std::shared_ptr<AffichageX11> affichage);
    ~SessionLinux() override;
    SessionLinux(const SessionLinux&) = delete;
    SessionLinux& operator=(const SessionLinux&) = delete;

    [[nodiscard]] std::unique_ptr<Abonnement>
    observer(std::function<void(EvenementSession)> quand) override;
    std::optional<bool> ecranVerrouille() const override;
    std::optional<bool> surConsole() const override;
    std::optional<double> secondesInactivite() const override;
    std::optional<bool> veilleEcranRetenue() const override;
    std::optional<bool> ecransEnVeille() const override;
    std::optional<bool> sessionActive() const override;
    std::string typeSession() const override;

    // Once logind's first answers are in, or could not be had.
    void quandPret(std::function<void()> quand);

private:
    using Observateurs = std::map<int, std::function<void(EvenementSession)>>;
    void annoncer(EvenementSession evenement);
    void sonderEcrans();

    Boucle& boucle;
    std::shared_ptr<AffichageX11> affichage;
    EcranX11 ecran;
    Logind logind;
    Inhibitions inhibitions;
    MoniteurGnome gnome;
    std::shared_ptr<Observateurs> observateurs = std::make_shared<Observateurs>();
    int prochainRang = 0;
    bool ecransEteints = false;
    std::unique_ptr<Abonnement> suiviActif;
    std::unique_ptr<Minuterie> sondeEcrans;
};

} // namespace tavi
