#include "generique/utf8.h"
#include "platform/linux/fichier_borne.h"
#include "platform/linux/index_entrees.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace tavi {

namespace fs = std::filesystem;

namespace {

// The kernel's largest pid (PID_MAX_LIMIT); a window claiming more lies.
constexpr std::int64_t pidMax = 4'194'304;
constexpr std::size_t tailleMaxProc = 64 * 1024;
// What a window's texts may hold to name an application: X clients write them freely.
constexpr std::size_t longueurMaxIndice = 255;

std::string minuscules(std::string_view texte) {
    std::string resultat(texte);
    for (char& c : resultat)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return resultat;
}

bool indiceUtilisable(std::string_view texte) {
    return !texte.empty() && texte.size() <= longueurMaxIndice && utf8Valide(texte) &&
           std::ranges::none_of(texte, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

std::string nomDeBase(std::string_view chemin) {
    const auto barre = chemin.rfind('/');
    return std::string(barre == std::string_view::npos ? chemin : chemin.substr(barre + 1));
}

// "python3.11" and "python3" are python: interpreters carry their version in their name.
std::string sansVersion(std::string nom) {
    while (!nom.empty() &&
           (std::isdigit(static_cast<unsigned char>(nom.back())) || nom.back() == '.'))
        nom.pop_back();
    return nom;
}

// Programs that run another one named by a later argument: the application is that one.
bool passeur(const std::string& nom) {
    static const std::set<std::string, std::less<>> passeurs = {
        "env",       "nice",   "nohup",  "ionice", "sudo",     "pkexec", "gamemoderun",
        "prime-run", "python", "pypy",   "perl",   "ruby",     "lua",    "luajit",
        "tclsh",     "wish",   "php",    "node",   "nodejs",   "gjs",    "java",
        "mono",      "wine",   "wine64", "sh",     "bash",     "dash",   "zsh",
        "ksh",       "fish",   "csh",    "tcsh",   "electron", "qemu",
    };
    return passeurs.contains(sansVersion(nom));
}

// Programs that start an application without naming it in a way the process shows.
bool opaque(const std::string& nom) {
    static const std::set<std::string, std::less<>> opaques = {
        "flatpak", "flatpak-spawn", "bwrap",     "snap",       "xdg-open",
        "gio",     "gtk-launch",    "kioclient", "kioclient5", "exo-open",
    };
    return opaques.contains(nom);
}

std::vector<std::string> ligneDeCommande(std::string_view brute) {
    std::vector<std::string> arguments;
    while (!brute.empty() && arguments.size() < 16) {
        const auto zero = brute.find('\0');
        arguments.emplace_back(brute.substr(0, zero));
        if (zero == std::string_view::npos) break;
        brute.remove_prefix(zero + 1);
    }
    return arguments;
}

std::string sansSuffixe(std::string texte, std::string_view suffixe) {
    if (texte.ends_with(suffixe)) texte.resize(texte.size() - suffixe.size());
    return texte;
}

bool identifiantFlatpak(std::string_view id) {
    return indiceUtilisable(id) && std::ranges::all_of(id, [](unsigned char c) {
               return std::isalnum(c) || c == '.' || c == '_' || c == '-';
           });
}

// The last element of each cgroup path of /proc/PID/cgroup ("app-flatpak-ID-N.scope").
std::vector<std::string> unitesCgroup(std::string_view texte) {
    std::vector<std::string> unites;
    while (!texte.empty()) {
        const auto fin = texte.find('\n');
        const auto ligne = texte.substr(0, fin);
        texte = fin == std::string_view::npos ? std::string_view{} : texte.substr(fin + 1);
        const auto barre = ligne.rfind('/');
        if (barre != std::string_view::npos) unites.emplace_back(ligne.substr(barre + 1));
    }
    return unites;
}

std::optional<std::string> flatpakDuCgroup(const std::vector<std::string>& unites) {
    constexpr std::string_view prefixe = "app-flatpak-";
    for (const auto& unite : unites) {
        if (!unite.starts_with(prefixe) || !unite.ends_with(".scope")) continue;
        auto milieu = sansSuffixe(unite.substr(prefixe.size()), ".scope");
        const auto tiret = milieu.rfind('-');
        if (tiret == std::string::npos) continue;
        milieu.resize(tiret);
        if (identifiantFlatpak(milieu)) return milieu;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> programmeLance(const std::vector<std::string>& arguments) {
    std::size_t i = 0;
    // Each hop looks through one launcher; a chain longer than a few is no real command.
    for (int saut = 0; saut < 4 && i < arguments.size(); ++saut) {
        const auto nom = nomDeBase(arguments[i]);
        if (nom.empty() || nom.front() == '%' || opaque(nom)) return std::nullopt;
        if (!passeur(nom)) return nom;
        // The next argument that is neither an option nor an assignment is what runs.
        ++i;
        while (i < arguments.size() &&
               (arguments[i].starts_with('-') || arguments[i].find('=') != std::string::npos))
            ++i;
    }
    return std::nullopt;
}

// A Snap runs in "snap.NAME.APP-UUID.scope" (older snapd: "snap.NAME.APP.scope") and exports
// its entry as "NAME_APP"; application names may hold dashes, so the suffix is cut a dash at a
// time until an entry answers.
const EntreeIndexee* IndexEntrees::snapDuCgroup(const std::vector<std::string>& unites) const {
    for (const auto& unite : unites) {
        if (!unite.starts_with("snap.")) continue;
        auto reste = sansSuffixe(sansSuffixe(unite.substr(5), ".scope"), ".service");
        const auto point = reste.find('.');
        if (point == std::string::npos || point == 0) continue;
        const auto nom = reste.substr(0, point);
        auto application = reste.substr(point + 1);
        for (int coupe = 0; coupe < 8 && !application.empty(); ++coupe) {
            if (const auto* entree = parIdentifiant(nom + "_" + application)) return entree;
            const auto tiret = application.rfind('-');
            if (tiret == std::string::npos) break;
            application.resize(tiret);
        }
    }
    return nullptr;
}

std::optional<IdentiteAppli> IndexEntrees::identite(const EntreeIndexee* entree) const {
    if (!entree) return std::nullopt;
    return IdentiteAppli{entree->identifiant,
                         entree->entree.nom.empty() ? entree->identifiant : entree->entree.nom,
                         entree->fichier.string()};
}

std::optional<IdentiteAppli> IndexEntrees::identifier(const IndicesFenetre& indices) const {
    const std::string classe = indiceUtilisable(indices.classe) ? indices.classe : "";
    const std::string instance = indiceUtilisable(indices.instance) ? indices.instance : "";

    if (indices.pid > 0 && indices.pid <= pidMax) {
        const fs::path processus = racineProc_ / std::to_string(indices.pid);
        const auto cgroup = lireDebutFichier(processus / "cgroup", tailleMaxProc);
        const auto unites = cgroup ? unitesCgroup(*cgroup) : std::vector<std::string>{};

        std::optional<std::string> flatpak;
        if (auto info = lireFichierBorne(processus / "root/.flatpak-info", tailleMaxProc)) {
            const auto application = lireGroupe(*info, "Application");
            if (auto it = application.find("name");
                it != application.end() && identifiantFlatpak(it->second))
                flatpak = it->second;
        }
        if (!flatpak) flatpak = flatpakDuCgroup(unites);
        if (flatpak) {
            if (auto trouvee = identite(parIdentifiant(*flatpak))) return trouvee;
            if (auto trouvee = identite(chercher(parFlatpak_, *flatpak))) return trouvee;
            // A Flatpak without an exported entry still names itself surely.
            return IdentiteAppli{*flatpak, classe.empty() ? *flatpak : classe, std::nullopt};
        }

        if (auto snap = identite(snapDuCgroup(unites))) return snap;
    }

    if (indiceUtilisable(indices.idGtk))
        if (auto trouvee = identite(parIdentifiant(indices.idGtk))) return trouvee;
    for (const auto* indice : {&classe, &instance})
        if (auto trouvee = identite(chercher(parClasseWm_, *indice))) return trouvee;
    for (const auto* indice : {&classe, &instance})
        if (auto trouvee = identite(chercher(parIdentifiantMinuscule_, minuscules(*indice))))
            return trouvee;

    if (indices.pid > 0 && indices.pid <= pidMax) {
        const fs::path processus = racineProc_ / std::to_string(indices.pid);
        std::error_code erreur;
        const auto exe = fs::read_symlink(processus / "exe", erreur);
        if (!erreur) {
            const auto nom = nomDeBase(sansSuffixe(exe.string(), " (deleted)"));
            if (!passeur(nom) && !opaque(nom))
                if (auto trouvee = identite(chercher(parProgramme_, nom))) return trouvee;
        }
        if (auto ligne = lireDebutFichier(processus / "cmdline", 4096))
            if (auto programme = programmeLance(ligneDeCommande(*ligne)))
                if (auto trouvee = identite(chercher(parProgramme_, *programme))) return trouvee;
    }

    if (!classe.empty()) return IdentiteAppli{minuscules(classe), classe, std::nullopt};
    if (!instance.empty()) return IdentiteAppli{minuscules(instance), instance, std::nullopt};
    return std::nullopt;
}

} // namespace tavi
