#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tavi {

// How the guardian reaches the X server of a session: the display logind names, the session's
// user, and the X authority files the session's processes name (the child's to rewrite: read
// as hostile, and only after the display manager's own authority failed).
struct AccesX {
    std::string affichage; // ":0", logind's Display of the session
    uid_t uid = 0;
    std::vector<std::string> autorites;
    bool operator==(const AccesX&) const = default;
};

// Whether the agent's veil is up on a display, as the X server shows it.
enum class EtatVoile {
    present, // on each screen a viewable window of the agent's process covers it, on top
    absent,  // the X server answered, and it is not
    inconnu, // no answer from the X server (yet)
};

// One look at a display, taken by the guardian itself. The reason is a short stable code for
// the log and the report: "x_injoignable", "aucune_fenetre", "non_visible", "non_couvert",
// "recouvert", "sans_agent".
struct RegardX {
    std::optional<double> inactiviteS; // seconds since the last input; absent without an answer
    EtatVoile voile = EtatVoile::inconnu;
    std::string raison;
    std::int64_t ageMs = 0; // how long ago the look was taken
};

// The guardian's looks at the X servers of the sessions it watches. Each display is watched
// away from the service's loop, so that an X server that hangs (or is stopped by its owner)
// never holds the guardian: the calls below never block. Main thread only.
class Regards {
public:
    virtual ~Regards() = default;

    // The latest look at the display of `acces`, checking the veil of process `agent` (0: no
    // agent, so no veil). Starts watching the display on the first call; absent until the first
    // look is taken.
    virtual std::optional<RegardX> regarder(const AccesX& acces, pid_t agent) = 0;

    // Stops watching every display but these.
    virtual void garderSeulement(const std::set<std::string>& affichages) = 0;

    // A notice the child can read, above everything on every screen of the display, until
    // withdrawn.
    virtual void afficherAvis(const AccesX& acces, const std::string& texte) = 0;
    virtual void retirerAvis(const std::string& affichage) = 0;
};

// The real ones, through XCB.
std::unique_ptr<Regards> creerRegardsX();

} // namespace tavi
