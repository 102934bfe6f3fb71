#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

struct sd_bus;

namespace tavi {

// A session of a local user, as logind describes it.
struct SessionLogind {
    std::string id;
    uid_t uid = 0;
    std::string utilisateur;
    std::string siege;
    std::string type;      // "x11", "wayland", "tty", ...
    std::string etat;      // "active" (in the foreground of its seat), "online" or "closing"
    std::string affichage; // logind's Display: the X display, empty on a bare Wayland session
    pid_t meneur = 0;      // the session's leader
    std::string dossierExecution; // the user's RuntimePath (graphical sessions only)
    std::string tty;              // the console, "tty3"; empty for most graphical sessions
    // The account's own word (SetLockedHint): a fact only together with what the guardian sees.
    bool verrouillee = false;
    bool operator==(const SessionLogind&) const = default;
};

// Whether logind's description is that of a session the agent runs in: a user's own desktop on
// this computer (not a greeter, not a remote one), which is in the foreground or may come to it.
bool estGraphique(const std::string& type, const std::string& classe, bool distant,
                  const std::string& etat);

// The sessions the guardian follows, and what it asks logind to do to them.
class Sessions {
public:
    virtual ~Sessions() = default;
    // The graphical sessions now; absent when logind could not be asked.
    virtual std::optional<std::vector<SessionLogind>> graphiques() = 0;
    // Every local session of a user (desktops and text consoles, whatever the seat), but the
    // closing ones; absent when logind could not be asked.
    virtual std::optional<std::vector<SessionLogind>> locales() = 0;
    // Whether logind is taking the computer to sleep (its own PreparingForSleep).
    virtual bool versLaVeille() = 0;
    // LockSession and TerminateSession; false when logind refused or did not answer.
    virtual bool verrouiller(const std::string& id) = 0;
    virtual bool terminer(const std::string& id) = 0;
};

// logind on the system bus (DBUS_SYSTEM_BUS_ADDRESS or the usual socket), asked with blocking
// calls of a short timeout: the guardian asks once a second and has nothing else to wait on
// while it does. The supervision's listing serves the count in the same second. A connection that fails
// is opened again at the next question.
class SessionsLogind : public Sessions {
public:
    SessionsLogind() = default;
    ~SessionsLogind() override;
    SessionsLogind(const SessionsLogind&) = delete;
    SessionsLogind& operator=(const SessionsLogind&) = delete;

    std::optional<std::vector<SessionLogind>> graphiques() override;
    std::optional<std::vector<SessionLogind>> locales() override;
    bool versLaVeille() override;
    bool verrouiller(const std::string& id) override;
    bool terminer(const std::string& id) override;

private:
    struct Lue {
        SessionLogind session;
        std::string classe;
        std::string cheminUtilisateur;
        bool distant = false;
    };
    static std::optional<Lue> lireSession(sd_bus* bus, const char* chemin);
    bool ouvrir();
    // `recente`: a listing of the last half second will do.
    const std::optional<std::vector<Lue>>& lister(bool recente);
    bool appeler(const char* methode, const std::string& id);

    sd_bus* bus = nullptr;
    std::optional<std::vector<Lue>> liste;
    std::int64_t listeeMs = -1; // awake clock
};

} // namespace tavi
