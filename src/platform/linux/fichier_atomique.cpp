#include "platform/linux/fichier_atomique.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view alphabet = "abcdefghijklmnopqrstuvwxyz0123456789";

// Hidden and without the final name's suffix, so that neither the session's autostart nor the
// service manager takes a leftover of a crash for an entry or a unit.
std::string nomTemporaire(const std::string& nom) {
    // arc4random cannot fail, where std::random_device may throw.
    std::string suffixe;
    for (int i = 0; i < 8; ++i)
        suffixe += alphabet[arc4random_uniform(static_cast<std::uint32_t>(alphabet.size()))];
    return "." + nom + ".tmp-" + suffixe;
}

bool ecrireTout(int fd, std::string_view octets) {
    while (!octets.empty()) {
        const ssize_t n = ::write(fd, octets.data(), octets.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        octets.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

std::string echec(const char* quoi, const fs::path& chemin, int numero) {
    return std::string(quoi) + " " + chemin.string() + ": " + nomErreur(numero);
}

} // namespace

std::string nomErreur(int numero) {
    const char* nom = strerrorname_np(numero);
    return nom ? nom : "errno " + std::to_string(numero);
}

std::optional<std::string> remplacerFichier(const fs::path& dossier, const std::string& nom,
                                            std::string_view contenu, mode_t mode) {
    std::error_code erreur;
    fs::create_directories(dossier, erreur);
    if (erreur) return echec("cannot create", dossier, erreur.value());
    const int rep = ::open(dossier.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rep < 0) return echec("cannot open", dossier, errno);

    std::string temporaire;
    int fd = -1;
    for (int essai = 0; essai < 16 && fd < 0; ++essai) {
        temporaire = nomTemporaire(nom);
        fd = ::openat(rep, temporaire.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      mode);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
        const int numero = errno;
        ::close(rep);
        return echec("cannot create", dossier / temporaire, numero);
    }
    bool ecrit = ::fchmod(fd, mode) == 0 && ecrireTout(fd, contenu) && ::fsync(fd) == 0;
    int numero = errno;
    if (::close(fd) != 0 && ecrit) {
        ecrit = false;
        numero = errno;
    }
    std::optional<std::string> resultat;
    if (!ecrit) {
        resultat = echec("cannot write", dossier / temporaire, numero);
    } else if (::renameat(rep, temporaire.c_str(), rep, nom.c_str()) != 0) {
        resultat = echec("cannot replace", dossier / nom, errno);
    } else {
        ::fsync(rep);
    }
    if (resultat) ::unlinkat(rep, temporaire.c_str(), 0);
    ::close(rep);
    return resultat;
}

} // namespace tavi
