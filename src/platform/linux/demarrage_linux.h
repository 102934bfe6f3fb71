#pragma once

#include "platform/demarrage.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tavi {

enum class ModeDemarrage {
    // The user's service manager where the desktop session runs under it, else the autostart
    // entry; either one counts as registered.
    automatique,
    systemd,
    xdg,
};

// Where the login agent is written and whom it starts. Every folder is absolute; the factory
// takes them from the environment, a test from its temporary folders.
struct OptionsDemarrage {
    // The agent's executable.
    std::filesystem::path executable;
    // $XDG_CONFIG_HOME, else ~/.config: the user's units (systemd/user) and autostart entries
    // (autostart) are written there.
    std::filesystem::path configMaison;
    // $XDG_CONFIG_DIRS, else /etc/xdg, best first: the system's autostart entries.
    std::vector<std::filesystem::path> configSysteme;
    ModeDemarrage mode = ModeDemarrage::automatique;
    // $XDG_RUNTIME_DIR and $DBUS_SESSION_BUS_ADDRESS: where the user's service manager answers.
    std::filesystem::path dossierExecution;
    std::string adresseBus;
};

// The login agent on Linux, in one of two forms, both starting the executable with TAVI_AGENT=1:
//
// - systemd: the user unit com.tavi.home.service, part of graphical-session.target and enabled
//   for it, restarted 2 s after it stops. Only where the desktop starts its session through
//   the user's service manager (graphical-session.target active): elsewhere that target is
//   never reached and the unit would never start.
// - xdg: the autostart entry com.tavi.home.desktop, which every XDG desktop starts at login.
//
// The state is read from the files and the manager each time; an entry or unit that the child
// edited, hid, disabled or overrode reads as not registered. Files are replaced in one step
// (temporary file and rename), 0644. An executable whose path is not absolute, not UTF-8, or
// holds a control character or '=' (env would take it for a variable) is not registered.
//
// `duProcessus` always makes the automatic choice: nothing the session's environment holds picks
// the form. A program that needs one form only (a test) sets `OptionsDemarrage::mode` itself.
class DemarrageLinux : public Demarrage {
public:
    explicit DemarrageLinux(OptionsDemarrage options);
    // The agent's executable from /proc/self/exe, folders from the environment, the automatic
    // mode.
    static DemarrageLinux duProcessus();

    bool actif() const override;
    std::optional<std::string> enregistrer() override;
    void desenregistrer() override;

    const OptionsDemarrage& options() const { return options_; }

private:
    OptionsDemarrage options_;
};

} // namespace tavi
