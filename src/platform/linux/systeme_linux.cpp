#include "platform/linux/systeme_linux.h"

#include <climits>
#include <fstream>
#include <iterator>
#include <map>
#include <sys/utsname.h>
#include <unistd.h>

namespace tavi {

namespace {

std::string_view sansBlancs(std::string_view texte) {
    const auto debut = texte.find_first_not_of(" \t\r");
    if (debut == std::string_view::npos) return {};
    const auto fin = texte.find_last_not_of(" \t\r");
    return texte.substr(debut, fin - debut + 1);
}

// A value as a shell would read it: inside double quotes a backslash keeps the next
// character; inside single quotes nothing is special.
std::string valeurShell(std::string_view brute) {
    std::string valeur;
    char guillemet = 0;
    for (std::size_t i = 0; i < brute.size(); ++i) {
        const char c = brute[i];
        if (guillemet == 0 && (c == '"' || c == '\'')) {
            guillemet = c;
        } else if (c == guillemet) {
            guillemet = 0;
        } else if (c == '\\' && guillemet != '\'' && i + 1 < brute.size()) {
            valeur += brute[++i];
        } else {
            valeur += c;
        }
    }
    return valeur;
}

std::map<std::string, std::string> variables(std::string_view texte) {
    std::map<std::string, std::string> lues;
    while (!texte.empty()) {
        const auto finLigne = texte.find('\n');
        const auto ligne = sansBlancs(texte.substr(0, finLigne));
        texte =
            finLigne == std::string_view::npos ? std::string_view{} : texte.substr(finLigne + 1);
        const auto egal = ligne.find('=');
        if (ligne.empty() || ligne.front() == '#' || egal == std::string_view::npos) continue;
        lues[std::string(ligne.substr(0, egal))] = valeurShell(ligne.substr(egal + 1));
    }
    return lues;
}

std::optional<std::string> lireFichier(const char* chemin) {
    std::ifstream fichier(chemin, std::ios::binary);
    if (!fichier) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(fichier), {});
}

} // namespace

std::optional<std::string> descriptionOsRelease(std::string_view texte) {
    const auto lues = variables(texte);
    auto valeur = [&](const char* cle) -> std::optional<std::string> {
        auto it = lues.find(cle);
        if (it == lues.end() || it->second.empty()) return std::nullopt;
        return it->second;
    };
    if (auto joli = valeur("PRETTY_NAME")) return joli;
    auto nom = valeur("NAME");
    if (!nom) return std::nullopt;
    if (auto version = valeur("VERSION_ID")) *nom += " " + *version;
    return nom;
}

std::string SystemeLinux::description() const {
    // /usr/lib/os-release is where the distribution puts it; /etc/os-release, usually a link
    // to it, is where an administrator may override it.
    for (const char* chemin : {"/etc/os-release", "/usr/lib/os-release"})
        if (auto texte = lireFichier(chemin))
            if (auto description = descriptionOsRelease(*texte)) return *description;
    utsname noyau{};
    if (uname(&noyau) == 0) return std::string("Linux ") + noyau.release;
    return "Linux";
}

std::optional<std::string> SystemeLinux::nomOrdinateur() const {
    char nom[HOST_NAME_MAX + 1] = {};
    if (gethostname(nom, sizeof nom - 1) != 0) return std::nullopt;
    const std::string hote(nom);
    if (hote.empty() || hote == "localhost") return std::nullopt;
    return hote;
}

} // namespace tavi
