#include "platform/linux/fichier_borne.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace {

std::optional<std::string> lire(const std::filesystem::path& chemin, std::size_t limite,
                                bool tronquer) {
    const int fd = ::open(chemin.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return std::nullopt;
    struct stat etat {};
    std::optional<std::string> texte;
    if (::fstat(fd, &etat) == 0 && S_ISREG(etat.st_mode)) {
        std::string lu;
        char tampon[8192];
        bool echec = false;
        // One byte past the limit tells a file of exactly `limite` bytes from a longer one.
        while (lu.size() <= limite) {
            const ssize_t n = ::read(fd, tampon, sizeof tampon);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                echec = true;
                break;
            }
            if (n == 0) break;
            lu.append(tampon, static_cast<std::size_t>(n));
        }
        if (!echec && lu.size() > limite && tronquer) lu.resize(limite);
        if (!echec && lu.size() <= limite) texte = std::move(lu);
    }
    ::close(fd);
    return texte;
}

} // namespace

std::optional<std::string> lireFichierBorne(const std::filesystem::path& chemin,
                                            std::size_t limite) {
    return lire(chemin, limite, false);
}

std::optional<std::string> lireDebutFichier(const std::filesystem::path& chemin,
                                            std::size_t limite) {
    return lire(chemin, limite, true);
}

} // namespace tavi
