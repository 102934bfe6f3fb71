#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sd_bus;

namespace tavi {

// The user's service manager (systemd --user), spoken to synchronously over sd-bus: for the
// blocking ports, which run on the background pool, never on the main thread.
//
// Every call waits at most `delaiAppel` for its answer. A manager that takes longer is as good
// as absent: after one call timed out, the next ones fail at once instead of each waiting
// again. A failed call leaves its description in `erreur()`: the D-Bus error's name, with the
// manager's own message for systemd's errors, cut short and stripped to printable ASCII (the
// answer comes from another process and goes into a log line).
class GestionnaireSystemd {
public:
    static constexpr std::chrono::milliseconds delaiAppel{2000};

    // The manager through its private socket in `dossierExecution` ($XDG_RUNTIME_DIR), as
    // systemctl reaches it, which answers even without a session bus; else through the session
    // bus at `adresseBus` ($DBUS_SESSION_BUS_ADDRESS, else the bus socket of
    // `dossierExecution`). Null when neither is ready within `delaiAppel`, both tries included.
    static std::unique_ptr<GestionnaireSystemd>
    joindre(const std::filesystem::path& dossierExecution, const std::string& adresseBus);
    ~GestionnaireSystemd();
    GestionnaireSystemd(const GestionnaireSystemd&) = delete;
    GestionnaireSystemd& operator=(const GestionnaireSystemd&) = delete;

    // GetUnitFileState: "enabled", "disabled", "masked", ...
    std::optional<std::string> etatFichier(const std::string& unite);
    // The unit's object path: LoadUnit when `charger`, else GetUnit (absent when not loaded).
    std::optional<std::string> objetUnite(const std::string& unite, bool charger);
    // Properties of a unit's object (org.freedesktop.systemd1.Unit).
    std::optional<std::string> texte(const std::string& objet, const char* propriete);
    std::optional<std::vector<std::string>> liste(const std::string& objet, const char* propriete);
    std::optional<bool> booleen(const std::string& objet, const char* propriete);

    // Reload, EnableUnitFiles (persistent, replacing links in the way) and DisableUnitFiles:
    // absent on success, else the description of the failure.
    std::optional<std::string> recharger();
    std::optional<std::string> activer(const std::string& unite);
    std::optional<std::string> desactiver(const std::string& unite);

    const std::string& erreur() const { return erreur_; }

private:
    explicit GestionnaireSystemd(sd_bus* connexion) : bus(connexion) {}
    // Whether `code` (an sd-bus result) is a success; a failure is recorded with the D-Bus
    // error's name and message when there is one, and a manager that did not answer is silent
    // from then on.
    bool noter(int code, const char* nom = nullptr, const char* message = nullptr);

    sd_bus* bus;
    bool muet = false;
    std::string erreur_;
};

} // namespace tavi
