#include "gardien/fichiers_root.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace {

std::string raison(const std::string& chemin, const std::string& quoi) {
    return chemin + " : " + quoi;
}

std::string octal(mode_t mode) {
    char texte[16];
    std::snprintf(texte, sizeof texte, "%04o", static_cast<unsigned>(mode & 07777));
    return texte;
}

} // namespace

Attendu<std::string, RefusFichier> lireFichierRoot(const std::string& chemin, std::size_t tailleMax,
                                                   int modeExact) {
    const int fd = open(chemin.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return RefusFichier{raison(chemin, std::strerror(errno))};
    struct stat etat {};
    std::string erreur;
    if (fstat(fd, &etat) != 0)
        erreur = std::strerror(errno);
    else if (!S_ISREG(etat.st_mode))
        erreur = "pas un fichier ordinaire";
    else if (etat.st_uid != 0)
        erreur = "n'appartient pas à root (propriétaire " + std::to_string(etat.st_uid) + ")";
    else if (modeExact >= 0 && (etat.st_mode & 07777) != static_cast<mode_t>(modeExact))
        erreur = "droits " + octal(etat.st_mode) + " au lieu de " +
                 octal(static_cast<mode_t>(modeExact));
    else if (etat.st_mode & (S_IWGRP | S_IWOTH))
        erreur = "modifiable par d'autres que root";
    else if (static_cast<std::size_t>(etat.st_size) > tailleMax)
        erreur = "plus de " + std::to_string(tailleMax) + " octets";
    std::string contenu;
    if (erreur.empty()) {
        char tampon[4096];
        for (;;) {
            const ssize_t n = read(fd, tampon, sizeof tampon);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                erreur = std::strerror(errno);
                break;
            }
            if (n == 0) break;
            contenu.append(tampon, static_cast<std::size_t>(n));
            if (contenu.size() > tailleMax) {
                erreur = "plus de " + std::to_string(tailleMax) + " octets";
                break;
            }
        }
    }
    close(fd);
    if (!erreur.empty()) return RefusFichier{raison(chemin, erreur)};
    return contenu;
}

Attendu<bool, std::string> remplacerFichier(const std::string& chemin, const std::string& octets,
                                            mode_t mode) {
    std::string temporaire = chemin + ".XXXXXX";
    const int fd = mkostemp(temporaire.data(), O_CLOEXEC);
    if (fd < 0) return raison(chemin, std::strerror(errno));
    std::string erreur;
    if (fchmod(fd, mode) != 0) erreur = std::strerror(errno);
    for (std::size_t ecrit = 0; erreur.empty() && ecrit < octets.size();) {
        const ssize_t n = write(fd, octets.data() + ecrit, octets.size() - ecrit);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0)
            erreur = std::strerror(errno);
        else
            ecrit += static_cast<std::size_t>(n);
    }
    if (erreur.empty() && fsync(fd) != 0) erreur = std::strerror(errno);
    if (close(fd) != 0 && erreur.empty()) erreur = std::strerror(errno);
    if (erreur.empty() && rename(temporaire.c_str(), chemin.c_str()) != 0)
        erreur = std::strerror(errno);
    if (!erreur.empty()) {
        unlink(temporaire.c_str());
        return raison(chemin, erreur);
    }
    return true;
}

// The folder exists as root's 0700 folder, or is made so.
Attendu<bool, std::string> dossierRoot(const std::string& chemin) {
    if (mkdir(chemin.c_str(), 0700) != 0 && errno != EEXIST)
        return chemin + " : " + std::strerror(errno);
    struct stat etat {};
    if (lstat(chemin.c_str(), &etat) != 0) return chemin + " : " + std::strerror(errno);
    if (!S_ISDIR(etat.st_mode) || etat.st_uid != 0) return chemin + " : pas un dossier de root";
    if ((etat.st_mode & 07777) != 0700 && chmod(chemin.c_str(), 0700) != 0)
        return chemin + " : " + std::strerror(errno);
    return true;
}

} // namespace tavi
