#include "platform/linux/confiance_fichiers.h"

#include <sys/stat.h>

namespace tavi {

namespace fs = std::filesystem;

namespace {

// Paths deeper than this are no system's.
constexpr int composantesMax = 64;

} // namespace

std::optional<fs::path> ConfianceFichiers::cheminSur(const fs::path& chemin) const {
    if (!chemin.is_absolute()) return std::nullopt;
    // The path as given, then the one its links lead to: a link of the child's pointing into
    // /usr would lend a system file a name of their choosing.
    std::error_code erreur;
    const fs::path reel = fs::canonical(chemin, erreur);
    if (erreur) return std::nullopt;
    for (const fs::path* p : {&chemin, &reel}) {
        fs::path courant;
        int composantes = 0;
        for (const auto& partie : p->lexically_normal()) {
            if (++composantes > composantesMax || partie == "..") return std::nullopt;
            courant /= partie;
            const auto relatif = courant.lexically_relative(racine);
            if (relatif.empty() || *relatif.begin() == "..") continue;
            struct stat etat {};
            if (::lstat(courant.c_str(), &etat) != 0 || etat.st_uid != proprietaire)
                return std::nullopt;
            // A link's own mode bits mean nothing; what it leads to is looked at in turn.
            if (S_ISLNK(etat.st_mode)) {
                if (p == &reel) return std::nullopt;
                continue;
            }
            if (etat.st_mode & (S_IWGRP | S_IWOTH)) return std::nullopt;
        }
    }
    return reel;
}

bool ConfianceFichiers::systeme(const fs::path& chemin) const {
    const auto reel = cheminSur(chemin);
    struct stat fichier = {};
    return reel && ::stat(reel->c_str(), &fichier) == 0 && S_ISREG(fichier.st_mode);
}

bool ConfianceFichiers::dossierSysteme(const fs::path& chemin) const {
    const auto reel = cheminSur(chemin);
    struct stat dossier = {};
    return reel && ::stat(reel->c_str(), &dossier) == 0 && S_ISDIR(dossier.st_mode);
}

std::optional<fs::path> ConfianceFichiers::executableSysteme(const fs::path& processus) const {
    std::error_code erreur;
    const fs::path chemin = fs::read_symlink(processus / "exe", erreur);
    // The kernel marks a file deleted since: whatever stands at that path now is not it.
    if (erreur || chemin.native().ends_with(" (deleted)") || !systeme(chemin)) return std::nullopt;
    // The path may name another file than the one running: replaced after it started, or a
    // mount of the process's own namespace showing a file of the child's under a system name.
    if (!execute(processus, chemin)) return std::nullopt;
    return chemin;
}

bool ConfianceFichiers::execute(const fs::path& processus, const fs::path& fichier) {
    struct stat execute = {};
    struct stat aSaPlace = {};
    return ::stat((processus / "exe").c_str(), &execute) == 0 &&
           ::stat(fichier.c_str(), &aSaPlace) == 0 && execute.st_dev == aSaPlace.st_dev &&
           execute.st_ino == aSaPlace.st_ino;
}

} // namespace tavi
