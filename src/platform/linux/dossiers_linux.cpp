#include "platform/linux/dossiers_linux.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace tavi::Dossiers {

namespace fs = std::filesystem;

namespace {

std::optional<fs::path> absolu(const char* texte) {
    if (!texte || texte[0] != '/') return std::nullopt;
    return fs::path(texte);
}

std::optional<fs::path> maison() {
    if (auto home = absolu(std::getenv("HOME"))) return home;
    // A service started without a login environment may have no HOME.
    long taille = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> tampon(taille > 0 ? static_cast<std::size_t>(taille) : 16384);
    passwd entree{};
    passwd* trouvee = nullptr;
    if (getpwuid_r(getuid(), &entree, tampon.data(), tampon.size(), &trouvee) != 0 || !trouvee)
        return std::nullopt;
    return absolu(trouvee->pw_dir);
}

} // namespace

std::optional<fs::path> etat() {
    if (auto xdg = absolu(std::getenv("XDG_STATE_HOME"))) return *xdg / "tavi-home";
    auto home = maison();
    if (!home) return std::nullopt;
    return *home / ".local" / "state" / "tavi-home";
}

std::optional<fs::path> reglages() {
    auto dossier = etat();
    if (!dossier) return std::nullopt;
    return *dossier / "reglages.sqlite";
}

} // namespace tavi::Dossiers
