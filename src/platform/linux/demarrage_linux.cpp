#include "platform/linux/demarrage_linux.h"

#include "generique/utf8.h"
#include "platform/linux/demarrage_systemd.h"
#include "platform/linux/demarrage_xdg.h"
#include "platform/linux/gestionnaire_systemd.h"

#include <algorithm>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <utility>

namespace tavi {

namespace fs = std::filesystem;

namespace {

std::string variable(const char* nom) {
    const char* valeur = std::getenv(nom);
    return valeur ? valeur : "";
}

// The XDG rules ignore a relative folder.
fs::path absolu(const std::string& texte) {
    return texte.starts_with('/') ? fs::path(texte) : fs::path();
}

fs::path maison() {
    if (auto home = absolu(variable("HOME")); !home.empty()) return home;
    // A service started without a login environment may have no HOME.
    const long taille = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> tampon(taille > 0 ? static_cast<std::size_t>(taille) : 16384);
    passwd entree{};
    passwd* trouvee = nullptr;
    if (getpwuid_r(getuid(), &entree, tampon.data(), tampon.size(), &trouvee) != 0 || !trouvee ||
        !trouvee->pw_dir)
        return {};
    return absolu(trouvee->pw_dir);
}

// Both forms name the executable in a line of text and may pass it through env, which takes
// any argument holding '=' for a variable.
std::optional<std::string> executableInvalide(const fs::path& executable) {
    const auto& chemin = executable.native();
    if (!executable.is_absolute()) return "executable path is not absolute";
    if (!utf8Valide(chemin)) return "executable path is not UTF-8";
    if (std::ranges::any_of(chemin, [](unsigned char c) { return c < 0x20 || c == 0x7f; }))
        return "executable path holds a control character";
    if (chemin.find('=') != std::string::npos) return "executable path holds '='";
    return std::nullopt;
}

std::unique_ptr<GestionnaireSystemd> joindre(const OptionsDemarrage& options) {
    return GestionnaireSystemd::joindre(options.dossierExecution, options.adresseBus);
}

} // namespace

DemarrageLinux::DemarrageLinux(OptionsDemarrage options) : options_(std::move(options)) {}

DemarrageLinux DemarrageLinux::duProcessus() {
    OptionsDemarrage options;
    std::error_code erreur;
    auto executable = fs::read_symlink("/proc/self/exe", erreur).native();
    // An upgrade replaces the file under a running copy, which the kernel then names
    // "... (deleted)": the new file at that path is the one to start.
    constexpr std::string_view efface = " (deleted)";
    if (executable.ends_with(efface)) executable.resize(executable.size() - efface.size());
    options.executable = executable;

    options.configMaison = absolu(variable("XDG_CONFIG_HOME"));
    if (const auto home = maison(); options.configMaison.empty() && !home.empty())
        options.configMaison = home / ".config";
    const std::string tous = variable("XDG_CONFIG_DIRS");
    std::string_view dossiers = tous;
    while (!dossiers.empty()) {
        const auto deuxPoints = dossiers.find(':');
        if (auto dossier = absolu(std::string(dossiers.substr(0, deuxPoints))); !dossier.empty())
            options.configSysteme.push_back(dossier);
        dossiers = deuxPoints == std::string_view::npos ? std::string_view{}
                                                        : dossiers.substr(deuxPoints + 1);
    }
    if (options.configSysteme.empty()) options.configSysteme = {"/etc/xdg"};

    options.dossierExecution = absolu(variable("XDG_RUNTIME_DIR"));
    options.adresseBus = variable("DBUS_SESSION_BUS_ADDRESS");
    return DemarrageLinux(std::move(options));
}

bool DemarrageLinux::actif() const {
    // The entry first: it costs a file, the unit a round trip to the manager.
    if (options_.mode != ModeDemarrage::systemd && !DemarrageXdg::pourquoiInactif(options_))
        return true;
    if (options_.mode == ModeDemarrage::xdg) return false;
    const auto gestionnaire = joindre(options_);
    return gestionnaire && !DemarrageSystemd::pourquoiInactif(options_, *gestionnaire);
}

std::optional<std::string> DemarrageLinux::enregistrer() {
    if (auto erreur = executableInvalide(options_.executable)) return erreur;
    if (!options_.configMaison.is_absolute()) return "no configuration folder (HOME unset)";
    if (options_.mode == ModeDemarrage::xdg) return DemarrageXdg::enregistrer(options_);
    if (options_.mode == ModeDemarrage::automatique && !DemarrageXdg::pourquoiInactif(options_))
        return std::nullopt;
    const auto gestionnaire = joindre(options_);
    if (options_.mode == ModeDemarrage::systemd) {
        if (!gestionnaire) return "user service manager not reachable";
        return DemarrageSystemd::enregistrer(options_, *gestionnaire);
    }

    if (gestionnaire && !DemarrageSystemd::pourquoiInactif(options_, *gestionnaire))
        return std::nullopt;
    // One form at a time: a session that honoured both would start two copies.
    if (gestionnaire && DemarrageSystemd::sessionGeree(*gestionnaire)) {
        auto erreur = DemarrageSystemd::enregistrer(options_, *gestionnaire);
        if (!erreur) DemarrageXdg::desenregistrer(options_);
        return erreur;
    }
    auto erreur = DemarrageXdg::enregistrer(options_);
    if (!erreur) DemarrageSystemd::desenregistrer(options_);
    return erreur;
}

void DemarrageLinux::desenregistrer() {
    if (options_.mode != ModeDemarrage::systemd) DemarrageXdg::desenregistrer(options_);
    if (options_.mode != ModeDemarrage::xdg) DemarrageSystemd::desenregistrer(options_);
}

} // namespace tavi
