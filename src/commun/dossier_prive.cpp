#include "commun/dossier_prive.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace tavi {

namespace fs = std::filesystem;

std::optional<std::string> creerDossierPrive(const fs::path& dossier) {
    if (dossier.empty()) return std::nullopt;
    fs::path chemin;
    for (const auto& partie : dossier) {
        chemin /= partie;
        if (::mkdir(chemin.c_str(), 0700) == 0 || errno == EEXIST) continue;
        return chemin.string() + ": " + std::strerror(errno);
    }
    struct stat etat {};
    if (::lstat(dossier.c_str(), &etat) != 0 || !S_ISDIR(etat.st_mode))
        return dossier.string() + ": not a folder";
    // Only the folder that is ours; its parents (the user's ~/.local/state) stay as they are.
    if ((etat.st_mode & 077) != 0 && ::chmod(dossier.c_str(), 0700) != 0)
        return dossier.string() + ": " + std::strerror(errno);
    return std::nullopt;
}

} // namespace tavi
