#include "gardien/processus.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace tavi::Processus {

namespace {

constexpr std::size_t environnementMax = 64 * 1024;
constexpr std::size_t valeurMax = 4096;

std::string chemin(pid_t pid, const char* nom) {
    return "/proc/" + std::to_string(pid) + "/" + nom;
}

// At most `borne` bytes of a file; absent when it cannot be opened.
std::optional<std::string> lire(const std::string& fichier, std::size_t borne) {
    const int fd = open(fichier.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return std::nullopt;
    std::string texte;
    char tampon[4096];
    while (texte.size() < borne) {
        const ssize_t n = read(fd, tampon, std::min(sizeof tampon, borne - texte.size()));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        texte.append(tampon, static_cast<std::size_t>(n));
    }
    close(fd);
    return texte;
}

std::optional<std::uint64_t> nombre(std::string_view texte) {
    if (texte.empty() || texte.size() > 20) return std::nullopt;
    std::uint64_t valeur = 0;
    for (char c : texte) {
        if (c < '0' || c > '9') return std::nullopt;
        valeur = valeur * 10 + static_cast<std::uint64_t>(c - '0');
    }
    return valeur;
}

} // namespace

std::optional<Etat> etat(pid_t pid) {
    if (pid <= 0) return std::nullopt;
    const auto texte = lire(chemin(pid, "stat"), 4096);
    if (!texte) return std::nullopt;
    // The command name in parentheses is the process's to choose, spaces and ')' included:
    // the fields start after the last ')'.
    const auto fin = texte->rfind(')');
    if (fin == std::string::npos) return std::nullopt;
    std::vector<std::string_view> champs;
    std::string_view reste = std::string_view(*texte).substr(fin + 1);
    while (!reste.empty()) {
        const auto debut = reste.find_first_not_of(" \n");
        if (debut == std::string_view::npos) break;
        reste.remove_prefix(debut);
        const auto espace = std::min(reste.find(' '), reste.size());
        champs.push_back(reste.substr(0, espace));
        reste.remove_prefix(espace);
    }
    // After the name: state (3), ppid (4), ... starttime (22).
    if (champs.size() < 20 || champs[0].size() != 1) return std::nullopt;
    const auto parent = nombre(champs[1]);
    const auto debut = nombre(champs[19]);
    if (!parent || !debut) return std::nullopt;
    return Etat{champs[0][0], *debut, static_cast<pid_t>(*parent)};
}

std::optional<uid_t> proprietaire(pid_t pid) {
    const auto texte = lire(chemin(pid, "status"), 16 * 1024);
    if (!texte) return std::nullopt;
    const auto ligne = texte->find("\nUid:\t");
    if (ligne == std::string::npos) return std::nullopt;
    const std::string_view reste = std::string_view(*texte).substr(ligne + 6);
    const auto uid = nombre(reste.substr(0, reste.find('\t')));
    if (!uid || *uid > UINT32_MAX) return std::nullopt;
    return static_cast<uid_t>(*uid);
}

std::optional<std::string> executable(pid_t pid) {
    char tampon[PATH_MAX];
    const ssize_t n = readlink(chemin(pid, "exe").c_str(), tampon, sizeof tampon);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof tampon) return std::nullopt;
    return std::string(tampon, static_cast<std::size_t>(n));
}

std::int64_t debutMs(std::uint64_t debutTicks) {
    static const std::int64_t demarrageS = [] {
        const auto texte = lire("/proc/stat", 256 * 1024).value_or("");
        const auto ligne = texte.find("\nbtime ");
        if (ligne == std::string::npos) return std::int64_t{0};
        return static_cast<std::int64_t>(std::strtoll(texte.c_str() + ligne + 7, nullptr, 10));
    }();
    static const std::int64_t parSeconde = std::max(1L, sysconf(_SC_CLK_TCK));
    return demarrageS * 1000 + static_cast<std::int64_t>(debutTicks) * 1000 / parSeconde;
}

std::string identifiantDemarrage() {
    auto texte = lire("/proc/sys/kernel/random/boot_id", 64).value_or("");
    while (!texte.empty() && (texte.back() == '\n' || texte.back() == ' '))
        texte.pop_back();
    return texte;
}

std::map<std::string, std::string> environnement(pid_t pid, const std::vector<std::string>& noms) {
    std::map<std::string, std::string> valeurs;
    const auto texte = lire(chemin(pid, "environ"), environnementMax);
    if (!texte) return valeurs;
    std::string_view reste = *texte;
    while (!reste.empty()) {
        const auto fin = std::min(reste.find('\0'), reste.size());
        const std::string_view entree = reste.substr(0, fin);
        reste.remove_prefix(std::min(fin + 1, reste.size()));
        const auto egal = entree.find('=');
        if (egal == std::string_view::npos) continue;
        const std::string nom(entree.substr(0, egal));
        const std::string_view valeur = entree.substr(egal + 1);
        if (std::find(noms.begin(), noms.end(), nom) == noms.end() || valeur.size() > valeurMax ||
            std::any_of(valeur.begin(), valeur.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }))
            continue;
        // The first one counts, as getenv reads it.
        valeurs.emplace(nom, std::string(valeur));
    }
    return valeurs;
}

std::vector<pid_t> deLaSession(const std::string& session, uid_t uid) {
    std::vector<pid_t> pids;
    const std::string portee = "/session-" + session + ".scope";
    DIR* proc = opendir("/proc");
    if (!proc) return pids;
    while (const dirent* entree = readdir(proc)) {
        const auto pid = nombre(entree->d_name);
        if (!pid || *pid == 0 || *pid > 4'194'304) continue;
        const auto p = static_cast<pid_t>(*pid);
        if (proprietaire(p) != uid) continue;
        const auto groupes = lire(chemin(p, "cgroup"), 4096);
        if (!groupes) continue;
        // The scope ends its line, or a sub-group follows it.
        for (std::size_t i = groupes->find(portee); i != std::string::npos;
             i = groupes->find(portee, i + 1)) {
            const std::size_t apres = i + portee.size();
            if (apres == groupes->size() || (*groupes)[apres] == '\n' || (*groupes)[apres] == '/') {
                pids.push_back(p);
                break;
            }
        }
    }
    closedir(proc);
    std::sort(pids.begin(), pids.end());
    return pids;
}

} // namespace tavi::Processus
