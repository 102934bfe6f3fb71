#include "platform/linux/coffre_fichier.h"

#include "commun/dossier_prive.h"
#include "generique/utf8.h"

#include <array>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tavi {

namespace fs = std::filesystem;

namespace {

// A secret is a token, not a document: anything larger is not ours.
constexpr off_t tailleMax = 64 * 1024;
constexpr std::string_view alphabetTemporaire = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t longueurSuffixe = 6;

class Descripteur {
public:
    explicit Descripteur(int ouvert) : fd(ouvert) {}
    ~Descripteur() {
        if (fd >= 0) close(fd);
    }
    Descripteur(const Descripteur&) = delete;
    Descripteur& operator=(const Descripteur&) = delete;
    int get() const { return fd; }
    bool valide() const { return fd >= 0; }
    int liberer() { return std::exchange(fd, -1); }
    void remplacer(int nouveau) {
        if (fd >= 0) close(fd);
        fd = nouveau;
    }
    // Closes now, saying whether the close reported no error.
    bool fermer() { return close(std::exchange(fd, -1)) == 0; }

private:
    int fd;
};

// Letters, digits and ". _ -" stand for themselves; any other byte is %XX. '@' joins the two
// names and '~' marks temporary files: neither can appear in an encoded name, so no two
// (service, account) pairs share a file and no secret file looks like a temporary one.
std::string encoder(const std::string& nom) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string code;
    for (unsigned char c : nom) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
            c == '.' || c == '_' || c == '-') {
            code += static_cast<char>(c);
        } else {
            code += '%';
            code += hex[c >> 4];
            code += hex[c & 0xF];
        }
    }
    return code;
}

std::optional<std::string> nomFichier(const std::string& service, const std::string& compte) {
    std::string nom = encoder(service) + "@" + encoder(compte);
    // Room for the temporary file's name: "~" + name + "." + suffix.
    if (nom.size() + 2 + longueurSuffixe > NAME_MAX) return std::nullopt;
    return nom;
}

std::string temporaire(const std::string& nom) {
    thread_local std::mt19937 hasard{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> tirage(0, alphabetTemporaire.size() - 1);
    std::string suffixe;
    for (std::size_t i = 0; i < longueurSuffixe; ++i)
        suffixe += alphabetTemporaire[tirage(hasard)];
    return "~" + nom + "." + suffixe;
}

bool estTemporaireDe(std::string_view entree, const std::string& nom) {
    if (entree.size() != nom.size() + 2 + longueurSuffixe) return false;
    if (!entree.starts_with("~") || entree.substr(1, nom.size()) != nom ||
        entree[nom.size() + 1] != '.')
        return false;
    return entree.substr(nom.size() + 2).find_first_not_of(alphabetTemporaire) ==
           std::string_view::npos;
}

// The folder, opened without following a link, once it is this user's alone; -1 when it is
// missing (and not to be made), another user's, or cannot be made private.
int ouvrirDossier(const fs::path& dossier, bool creer) {
    // The parents it makes are the state folder and its own parents: 0700 like the folder,
    // whichever of the two stores comes first.
    if (creer) creerDossierPrive(dossier);
    Descripteur fd(open(dossier.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat etat {};
    if (!fd.valide() || fstat(fd.get(), &etat) != 0 || etat.st_uid != geteuid()) return -1;
    if ((etat.st_mode & 077) != 0 && fchmod(fd.get(), 0700) != 0) return -1;
    return fd.liberer();
}

bool ecrireTout(int fd, const std::string& octets) {
    std::size_t ecrits = 0;
    while (ecrits < octets.size()) {
        const ssize_t n = write(fd, octets.data() + ecrits, octets.size() - ecrits);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        ecrits += static_cast<std::size_t>(n);
    }
    return true;
}

// Temporary files left by a write that a crash interrupted: they hold a secret too.
void effacerRestes(int dossier, const std::string& nom) {
    DIR* flux = fdopendir(dup(dossier));
    if (!flux) return;
    std::vector<std::string> restes;
    while (const dirent* entree = readdir(flux))
        if (estTemporaireDe(entree->d_name, nom)) restes.emplace_back(entree->d_name);
    closedir(flux);
    for (const auto& reste : restes)
        unlinkat(dossier, reste.c_str(), 0);
}

} // namespace

CoffreFichier::CoffreFichier(fs::path racine) : dossier(std::move(racine)) {}

std::optional<fs::path> CoffreFichier::chemin(const std::string& service,
                                              const std::string& compte) const {
    auto nom = nomFichier(service, compte);
    if (!nom) return std::nullopt;
    return dossier / *nom;
}

std::optional<std::string> CoffreFichier::lire(const std::string& service,
                                               const std::string& compte) const {
    auto nom = nomFichier(service, compte);
    if (!nom) return std::nullopt;
    Descripteur rep(ouvrirDossier(dossier, false));
    if (!rep.valide()) return std::nullopt;
    Descripteur fichier(openat(rep.get(), nom->c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat etat {};
    if (!fichier.valide() || fstat(fichier.get(), &etat) != 0 || !S_ISREG(etat.st_mode) ||
        etat.st_uid != geteuid() || etat.st_size > tailleMax)
        return std::nullopt;
    // A file someone opened to others is closed again before it is trusted any further.
    if ((etat.st_mode & 077) != 0 && fchmod(fichier.get(), 0600) != 0) return std::nullopt;

    std::string secret;
    std::array<char, 4096> tampon{};
    for (;;) {
        const ssize_t n = read(fichier.get(), tampon.data(), tampon.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        secret.append(tampon.data(), static_cast<std::size_t>(n));
        if (secret.size() > static_cast<std::size_t>(tailleMax)) return std::nullopt;
    }
    // The file is this user's, so the child's to edit: bytes that are not text read as absent.
    if (secret.find('\0') != std::string::npos || !utf8Valide(secret)) return std::nullopt;
    return secret;
}

void CoffreFichier::ecrire(const std::string& service, const std::string& compte,
                           const std::string& secret) {
    deposer(service, compte, secret);
}

void CoffreFichier::supprimer(const std::string& service, const std::string& compte) {
    retirer(service, compte);
}

bool CoffreFichier::deposer(const std::string& service, const std::string& compte,
                            const std::string& secret) {
    auto nom = nomFichier(service, compte);
    if (!nom || secret.size() > static_cast<std::size_t>(tailleMax)) return false;
    Descripteur rep(ouvrirDossier(dossier, true));
    if (!rep.valide()) return false;

    std::string nomTemporaire;
    Descripteur fichier(-1);
    for (int essai = 0; essai < 16 && !fichier.valide(); ++essai) {
        nomTemporaire = temporaire(*nom);
        // 0600 at creation, whatever the umask: the file is never open to others, not even
        // for the instant before a chmod.
        fichier.remplacer(openat(rep.get(), nomTemporaire.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fichier.valide() && errno != EEXIST) return false;
    }
    if (!fichier.valide()) return false;

    bool ecrit = fchmod(fichier.get(), 0600) == 0 && ecrireTout(fichier.get(), secret) &&
                 fsync(fichier.get()) == 0;
    ecrit = fichier.fermer() && ecrit;
    if (!ecrit || renameat(rep.get(), nomTemporaire.c_str(), rep.get(), nom->c_str()) != 0) {
        unlinkat(rep.get(), nomTemporaire.c_str(), 0);
        return false;
    }
    fsync(rep.get());
    effacerRestes(rep.get(), *nom);
    return true;
}

bool CoffreFichier::retirer(const std::string& service, const std::string& compte) {
    auto nom = nomFichier(service, compte);
    if (!nom) return true;
    Descripteur rep(ouvrirDossier(dossier, false));
    if (!rep.valide()) {
        struct stat etat {};
        return lstat(dossier.c_str(), &etat) != 0 && errno == ENOENT;
    }
    effacerRestes(rep.get(), *nom);
    if (unlinkat(rep.get(), nom->c_str(), 0) != 0) return errno == ENOENT;
    fsync(rep.get());
    return true;
}

} // namespace tavi
