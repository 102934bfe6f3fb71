#include "gardien/autorite_x.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tavi::AutoritesX {
namespace {

constexpr std::size_t tailleMax = 64 * 1024;
constexpr unsigned familleLocale = 256;
constexpr unsigned familleJoker = 65535;

// Reads an opened descriptor to its end, giving up past the bound.
std::optional<std::string> lireBorne(int fd) {
    std::string octets;
    char tampon[8192];
    while (true) {
        const ssize_t lu = read(fd, tampon, sizeof tampon);
        if (lu < 0 && errno == EINTR) continue;
        if (lu < 0) return std::nullopt;
        if (lu == 0) return octets;
        octets.append(tampon, static_cast<std::size_t>(lu));
        if (octets.size() > tailleMax) return std::nullopt;
    }
}

// A field of an Xauthority entry: a big-endian 16-bit length, then that many bytes.
bool champ(std::string_view& reste, std::string_view& valeur) {
    if (reste.size() < 2) return false;
    const std::size_t longueur =
        static_cast<unsigned char>(reste[0]) * 256u + static_cast<unsigned char>(reste[1]);
    if (reste.size() < 2 + longueur) return false;
    valeur = reste.substr(2, longueur);
    reste.remove_prefix(2 + longueur);
    return true;
}

std::optional<std::string> cmdline(pid_t pid) {
    const int fd =
        open(("/proc/" + std::to_string(pid) + "/cmdline").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    auto octets = lireBorne(fd);
    close(fd);
    return octets;
}

} // namespace

std::optional<AutoriteX> cookie(std::string_view octets, std::optional<int> numero) {
    const std::string attendu = numero ? std::to_string(*numero) : std::string();
    while (octets.size() >= 2) {
        const unsigned famille =
            static_cast<unsigned char>(octets[0]) * 256u + static_cast<unsigned char>(octets[1]);
        octets.remove_prefix(2);
        std::string_view adresse, affichage, nom, donnees;
        if (!champ(octets, adresse) || !champ(octets, affichage) || !champ(octets, nom) ||
            !champ(octets, donnees))
            return std::nullopt;
        if ((famille == familleLocale || famille == familleJoker) &&
            (!numero || affichage == attendu) && nom == "MIT-MAGIC-COOKIE-1" && !donnees.empty())
            return AutoriteX{std::string(nom), std::string(donnees)};
    }
    return std::nullopt;
}

std::optional<std::string> lireFichierDe(const std::string& chemin, uid_t proprietaire) {
    // O_PATH opens nothing: a FIFO does not block, a device is not touched, and the checks
    // below hold for the very file read through /proc/self/fd.
    const int lien = open(chemin.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (lien < 0) return std::nullopt;
    struct stat etat {};
    std::optional<std::string> octets;
    if (fstat(lien, &etat) == 0 && S_ISREG(etat.st_mode) && etat.st_uid == proprietaire &&
        static_cast<std::size_t>(etat.st_size) <= tailleMax) {
        const int fd = open(("/proc/self/fd/" + std::to_string(lien)).c_str(),
                            O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fd >= 0) {
            octets = lireBorne(fd);
            close(fd);
        }
    }
    close(lien);
    return octets;
}

std::optional<AutoriteX> duServeur(int socketX) {
    struct ucred pair {};
    socklen_t taille = sizeof pair;
    if (getsockopt(socketX, SOL_SOCKET, SO_PEERCRED, &pair, &taille) != 0 || pair.pid <= 0)
        return std::nullopt;
    // A server of the child's own could name any root file, another display's authority
    // among them: only a root X server names its authority.
    if (pair.uid != 0) return std::nullopt;
    const auto ligne = cmdline(pair.pid);
    if (!ligne) return std::nullopt;
    std::vector<std::string> arguments;
    for (std::size_t debut = 0; debut < ligne->size();) {
        const std::size_t fin = std::min(ligne->find('\0', debut), ligne->size());
        arguments.emplace_back(ligne->substr(debut, fin - debut));
        debut = fin + 1;
    }
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments[i] != "-auth") continue;
        const auto octets = lireFichierDe(arguments[i + 1], 0);
        return octets ? cookie(*octets, std::nullopt) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace tavi::AutoritesX
