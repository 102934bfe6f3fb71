#include "gardien/lanceur.h"

#include "gardien/processus.h"

#include <algorithm>
#include <grp.h>
#include <map>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace {

constexpr const char* cheminFixe = "/usr/local/bin:/usr/bin:/bin";

bool faitDe(std::string_view valeur, std::string_view autorises, std::size_t longueurMax) {
    if (valeur.empty() || valeur.size() > longueurMax) return false;
    return std::all_of(valeur.begin(), valeur.end(), [autorises](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               autorises.find(c) != std::string_view::npos;
    });
}

bool cheminSimple(std::string_view chemin) {
    return chemin.starts_with('/') && faitDe(chemin, "/._-", 1024) &&
           chemin.find("/../") == std::string_view::npos && !chemin.ends_with("/..");
}

// The X authority the session leader names, when it is a file of the user's: it decides which
// X server the agent trusts, and the child can rewrite their processes' environments.
std::optional<std::string> autoriteX(const std::string& valeur, uid_t uid) {
    struct stat etat {};
    if (!valeur.starts_with('/') || lstat(valeur.c_str(), &etat) != 0 || !S_ISREG(etat.st_mode) ||
        etat.st_uid != uid)
        return std::nullopt;
    return valeur;
}

bool estSocket(const std::string& chemin) {
    struct stat etat {};
    return lstat(chemin.c_str(), &etat) == 0 && S_ISSOCK(etat.st_mode);
}

// The session's leader first, then its other processes of the user's, each value taken from
// the first that has one.
std::map<std::string, std::string> environnementDeSession(const SessionLogind& session) {
    const std::vector<std::string> noms = {"XAUTHORITY", "LANG", "WAYLAND_DISPLAY"};
    auto valeurs = Processus::environnement(session.meneur, noms);
    if (valeurs.size() == noms.size() || session.id.empty()) return valeurs;
    for (const pid_t pid : Processus::deLaSession(session.id, session.uid)) {
        valeurs.merge(Processus::environnement(pid, noms));
        if (valeurs.size() == noms.size()) break;
    }
    return valeurs;
}

} // namespace

std::vector<std::string> autoritesX(const SessionLogind& session) {
    constexpr std::size_t autoritesMax = 4;
    std::vector<std::string> autorites;
    std::vector<pid_t> pids = {session.meneur};
    if (!session.id.empty()) {
        const auto autres = Processus::deLaSession(session.id, session.uid);
        pids.insert(pids.end(), autres.begin(), autres.end());
    }
    for (const pid_t pid : pids) {
        const auto valeurs = Processus::environnement(pid, {"XAUTHORITY"});
        const auto x = valeurs.find("XAUTHORITY");
        if (x == valeurs.end()) continue;
        const auto autorite = autoriteX(x->second, session.uid);
        if (autorite && std::find(autorites.begin(), autorites.end(), *autorite) == autorites.end())
            autorites.push_back(*autorite);
        if (autorites.size() == autoritesMax) break;
    }
    return autorites;
}

std::optional<Lancement> preparerLancement(const SessionLogind& session,
                                           const std::string& agent, const std::string& relais) {
    passwd entree{};
    passwd* trouve = nullptr;
    std::vector<char> tampon(16 * 1024);
    if (getpwuid_r(session.uid, &entree, tampon.data(), tampon.size(), &trouve) != 0 || !trouve)
        return std::nullopt;
    Lancement l;
    l.executable = agent;
    l.uid = session.uid;
    l.gid = entree.pw_gid;
    l.utilisateur = entree.pw_name;
    l.maison = entree.pw_dir ? entree.pw_dir : "/";
    const std::string coquille = entree.pw_shell && *entree.pw_shell ? entree.pw_shell : "/bin/sh";

    // The groups are read here, not in the child: after a fork only system calls are safe.
    int nombre = 64;
    l.groupes.resize(static_cast<std::size_t>(nombre));
    if (getgrouplist(l.utilisateur.c_str(), l.gid, l.groupes.data(), &nombre) < 0) {
        l.groupes.resize(static_cast<std::size_t>(nombre));
        if (getgrouplist(l.utilisateur.c_str(), l.gid, l.groupes.data(), &nombre) < 0)
            return std::nullopt;
    }
    l.groupes.resize(static_cast<std::size_t>(nombre));

    const std::string execution = cheminSimple(session.dossierExecution)
                                      ? session.dossierExecution
                                      : "/run/user/" + std::to_string(session.uid);
    auto meneur = environnementDeSession(session);
    auto& env = l.environnement;
    env = {"TAVI_AGENT=1",
           "TAVI_RELAIS=" + relais,
           "HOME=" + l.maison,
           "USER=" + l.utilisateur,
           "LOGNAME=" + l.utilisateur,
           "SHELL=" + coquille,
           "PATH=" + std::string(cheminFixe),
           "XDG_RUNTIME_DIR=" + execution};
    if (faitDe(session.affichage, ":._-", 64)) env.push_back("DISPLAY=" + session.affichage);
    // Where the session's programs name none, the places display managers and xinit use.
    std::optional<std::string> autorite;
    if (const auto x = meneur.find("XAUTHORITY"); x != meneur.end())
        autorite = autoriteX(x->second, session.uid);
    for (const auto& usuel : {execution + "/gdm/Xauthority", l.maison + "/.Xauthority"})
        if (!autorite) autorite = autoriteX(usuel, session.uid);
    if (autorite) env.push_back("XAUTHORITY=" + *autorite);
    if (const auto w = meneur.find("WAYLAND_DISPLAY");
        w != meneur.end() && (faitDe(w->second, "._-", 64) || cheminSimple(w->second)))
        env.push_back("WAYLAND_DISPLAY=" + w->second);
    else if (session.type == "wayland" && estSocket(execution + "/wayland-0"))
        env.push_back("WAYLAND_DISPLAY=wayland-0");
    if (estSocket(execution + "/bus"))
        env.push_back("DBUS_SESSION_BUS_ADDRESS=unix:path=" + execution + "/bus");
    const auto langue = meneur.find("LANG");
    env.push_back("LANG=" + (langue != meneur.end() && faitDe(langue->second, "._@-", 64)
                                 ? langue->second
                                 : std::string("C.UTF-8")));
    return l;
}

} // namespace tavi
