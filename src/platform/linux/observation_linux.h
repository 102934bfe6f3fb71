#pragma once

#include "platform/applications.h"
#include "platform/boucle.h"
#include "platform/bureau.h"
#include "platform/categories_applis.h"
#include "platform/linux/applications_xdg.h"
#include "platform/linux/bus_sd.h"
#include "platform/linux/categories_xdg.h"
#include "platform/linux/environnement_xdg.h"
#include "platform/linux/navigation_linux.h"
#include "platform/linux/session_linux.h"
#include "platform/navigation.h"
#include "platform/session.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tavi {

class AffichageX11;
class BureauX11;
class IndexEntrees;

// Everything the agent observes of a Linux desktop, put together once: the session (logind,
// X11 or GNOME's idle monitor, the inhibitors), the desktop's applications (EWMH), the installed
// applications and their categories (desktop entries), the browsers.
//
// The desktop entries are read on the background pool when this starts and every ten minutes;
// until the first reading is in, windows are known by their class only and categories are
// unknown.
//
// Main thread only. Make it after Qt's own X connection (see AffichageX11::ouvrir).
class ObservationLinux {
public:
    ObservationLinux(Boucle& boucle, EnvironnementXdg environnement);
    ~ObservationLinux();
    ObservationLinux(const ObservationLinux&) = delete;
    ObservationLinux& operator=(const ObservationLinux&) = delete;

    Session& session();
    Bureau& bureau();
    Applications& applications();
    CategoriesApplis& categories();
    Navigation& navigation();
    // The buses it follows, for the agent's other users of them.
    BusSd& busDuSysteme() { return busSysteme; }
    BusSd& busDeSession() { return busSession; }

    // Once the desktop entries and logind's first answers are in (or could not be had).
    void quandPret(std::function<void()> quand);

    // What cannot be observed in this session at all, as short codes
    // ("application_au_premier_plan"...), for the log and the diagnostics.
    std::vector<std::string> inobservable() const;

private:
    void chargerEntrees();
    void verifierPret();

    Boucle& boucle;
    EnvironnementXdg environnement;
    BusSd busSysteme;
    BusSd busSession;
    std::shared_ptr<AffichageX11> affichage;
    std::shared_ptr<const IndexEntrees> index;
    SessionLinux sessionLinux;
    std::unique_ptr<BureauX11> bureauX11;
    ApplicationsXdg applicationsXdg;
    CategoriesXdg categoriesXdg;
    NavigationLinux navigationLinux;
    std::unique_ptr<Minuterie> relecture;
    std::shared_ptr<int> vivant = std::make_shared<int>(0);
    bool entreesLues = false;
    bool sessionPrete = false;
    std::vector<std::function<void()>> enAttente;
};

} // namespace tavi
