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

// The application a Flatpak sandbox's info names, whoever wrote it.
std::optional<std::string> flatpakDeclare(const fs::path& info) {
    const auto texte = lireFichierBorne(info, tailleMaxProc);
    if (!texte) return std::nullopt;
    const auto application = lireGroupe(*texte, "Application");
    const auto it = application.find("name");
    if (it == application.end() || !identifiantFlatpak(it->second)) return std::nullopt;
    return it->second;
}

// The script an interpreter's command line runs: its first argument that is no option.
std::optional<std::string> scriptLance(const std::vector<std::string>& arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i)
        if (!arguments[i].empty() && !arguments[i].starts_with('-')) return arguments[i];
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

std::optional<IdentiteAppli> IndexEntrees::identite(const EntreeIndexee* entree) const {
    if (!entree) return std::nullopt;
    return IdentiteAppli{entree->identifiant,
                         entree->entree.nom.empty() ? entree->identifiant : entree->entree.nom,
                         entree->fichier.string()};
}

// The system entry running `programme`: the one the window's hints point to when it runs that
// very program (LibreOffice's Writer and Calc are one program), else the one the program names.
const EntreeIndexee* IndexEntrees::parProgramme(const std::string& programme,
                                                const IndicesFenetre& indices) const {
    auto lance = [&](const EntreeIndexee* e) {
        return e && e->systeme && programmeLance(argumentsExec(e->entree.exec)) == programme;
    };
    std::vector<const EntreeIndexee*> indiques;
    if (indiceUtilisable(indices.idGtk)) indiques.push_back(parIdentifiant(indices.idGtk));
    for (const auto* indice : {&indices.classe, &indices.instance}) {
        if (!indiceUtilisable(*indice)) continue;
        indiques.push_back(chercher(parClasseWm_, *indice));
        indiques.push_back(chercher(parIdentifiantMinuscule_, minuscules(*indice)));
    }
    for (const auto* e : indiques)
        if (lance(e)) return e;
    return chercher(parProgramme_, programme);
}

std::optional<IdentiteAppli> IndexEntrees::identifier(const IndicesFenetre& indices) const {
    if (indices.pid <= 0 || indices.pid > pidMax) return std::nullopt;
    const fs::path processus = racineProc_ / std::to_string(indices.pid);

    std::error_code erreur;
    const auto lien = fs::read_symlink(processus / "exe", erreur);

    // Flatpak writes the sandbox's info as the user who runs it, so the application it names is
    // only a claim: believed when the system wrote the info, or when the system's installation
    // of that application holds the very file the process runs from its /app.
    const auto info = processus / "root/.flatpak-info";
    if (const auto flatpak = flatpakDeclare(info)) {
        bool sur = confiance_.systeme(info);
        if (!sur && !erreur && lien.native().starts_with("/app/")) {
            const auto installe = installationFlatpak_ / "app" / *flatpak / "current/active/files" /
                                  lien.lexically_relative("/app");
            sur = confiance_.systeme(installe) && ConfianceFichiers::execute(processus, installe);
        }
        if (sur) {
            const auto* e = parIdentifiant(*flatpak);
            if (!e || !e->systeme) e = chercher(parFlatpak_, *flatpak);
            if (auto trouvee = identite(e)) return trouvee;
            return IdentiteAppli{*flatpak, *flatpak, std::nullopt};
        }
    }

    if (erreur) return std::nullopt;
    const auto executable = confiance_.executableSysteme(processus);
    if (!executable) {
        const auto chemin = sansSuffixe(lien.string(), " (deleted)");
        if (!indiceUtilisable(chemin)) return std::nullopt;
        return IdentiteAppli{chemin, nomDeBase(chemin), std::nullopt};
    }

    std::string programme = nomDeBase(executable->string());
    if (passeur(programme)) {
        // An interpreter of the system: the application is its script, which the command line
        // names. That line is the process's own to rewrite, so it may only name a script the
        // system wrote; any other script is the child's own.
        const auto ligne = lireDebutFichier(processus / "cmdline", 4096);
        const auto script = ligne ? scriptLance(ligneDeCommande(*ligne)) : std::nullopt;
        if (!script || !indiceUtilisable(*script)) return std::nullopt;
        if (!confiance_.systeme(*script)) {
            const auto id = executable->string() + " " + *script;
            if (!indiceUtilisable(id)) return std::nullopt;
            return IdentiteAppli{id, nomDeBase(*script), std::nullopt};
        }
        programme = nomDeBase(*script);
    }
    if (auto trouvee = identite(parProgramme(programme, indices))) return trouvee;
    if (!indiceUtilisable(programme)) return std::nullopt;
    return IdentiteAppli{programme, programme, std::nullopt};
}

} // namespace tavi
