#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

struct sd_bus;

namespace tavi {

// A graphical session of a local user, as logind describes it.
struct SessionGraphique {
    std::string id;
    uid_t uid = 0;
    std::string utilisateur;
    std::string siege;
    std::string type;      // "x11" or "wayland"
    std::string etat;      // "active" or "online"
    std::string affichage; // logind's Display: the X display, empty on a bare Wayland session
    pid_t meneur = 0;      // the session's leader
    std::string dossierExecution; // the user's RuntimePath
    bool operator==(const SessionGraphique&) const = default;
};

// Whether logind's description is that of a session the agent runs in: a user's own desktop on
// this computer (not a greeter, not a remote one), which is in the foreground or may come to it.
bool estGraphique(const std::string& type, const std::string& classe, bool distant,
                  const std::string& etat);

// The sessions the supervision follows.
class Sessions {
public:
    virtual ~Sessions() = default;
    // The graphical sessions now; absent when logind could not be asked.
    virtual std::optional<std::vector<SessionGraphique>> graphiques() = 0;
};

// logind on the system bus (DBUS_SYSTEM_BUS_ADDRESS or the usual socket), asked with blocking
// calls of a short timeout: the guardian asks once a second and has nothing else to wait on
// while it does. A connection that fails is opened again at the next question.
class SessionsLogind : public Sessions {
public:
    SessionsLogind() = default;
    ~SessionsLogind() override;
    SessionsLogind(const SessionsLogind&) = delete;
    SessionsLogind& operator=(const SessionsLogind&) = delete;

    std::optional<std::vector<SessionGraphique>> graphiques() override;

private:
    sd_bus* bus = nullptr;
};

} // namespace tavi
