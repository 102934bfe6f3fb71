#include "platform/linux/demarrage_xdg.h"

#include "generique/utf8.h"
#include "platform/linux/entree_bureau.h"
#include "platform/linux/fichier_atomique.h"
#include "platform/linux/fichier_borne.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi::DemarrageXdg {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view groupe = "Desktop Entry";

// The keys an entry of ours may hold. The others can make a desktop skip the entry or start
// something else (TryExec, OnlyShowIn, NotShowIn, DBusActivatable, Path, the desktops' own
// conditions), so an entry holding one is not trusted.
constexpr std::array<std::string_view, 10> clesPermises = {
    "Type", "Version", "Name",      "GenericName", "Comment",
    "Icon", "Exec",    "NoDisplay", "Hidden",      "X-GNOME-Autostart-enabled"};

fs::path dossierUtilisateur(const OptionsDemarrage& options) {
    return options.configMaison / "autostart";
}

// Whether something lies at `chemin`, as the session would see it. A path that cannot be
// examined for another reason than its absence counts as there: the session cannot read it
// either, and will not fall back on the system's entry for it.
bool present(const fs::path& chemin) {
    struct stat etat {};
    return ::lstat(chemin.c_str(), &etat) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

std::optional<fs::path> entreeSysteme(const OptionsDemarrage& options) {
    for (const auto& dossier : options.configSysteme)
        if (dossier.is_absolute() && present(dossier / "autostart" / nomEntree))
            return dossier / "autostart" / nomEntree;
    return std::nullopt;
}

// One argument of Exec: quoted whole when it holds a reserved character, with a backslash
// before " ` $ and \ inside the quotes. % is doubled everywhere: field codes are expanded
// before the arguments are split.
std::string argument(std::string_view texte) {
    const bool guillemets =
        texte.empty() || texte.find_first_of(" \t\n\"'\\><~|&;$*?#()`") != std::string_view::npos;
    std::string resultat = guillemets ? "\"" : "";
    for (char c : texte) {
        if (guillemets && (c == '"' || c == '`' || c == '$' || c == '\\')) resultat += '\\';
        resultat += c;
        if (c == '%') resultat += '%';
    }
    if (guillemets) resultat += '"';
    return resultat;
}

// Exec's command, before the escaping of the value itself.
std::string commande(const std::string& executable) {
    return "env TAVI_AGENT=1 " + argument(executable);
}

// A string value: a backslash stands for itself only doubled.
std::string valeur(std::string_view texte) {
    std::string resultat;
    for (char c : texte) {
        if (c == '\\') resultat += '\\';
        resultat += c;
    }
    return resultat;
}

bool memeFichier(const fs::path& a, const fs::path& b) {
    std::error_code erreur;
    return a.lexically_normal() == b.lexically_normal() || fs::equivalent(a, b, erreur);
}

bool cleValide(std::string_view cle) {
    const auto crochet = cle.find('[');
    const auto nom = cle.substr(0, crochet);
    if (nom.empty() || !std::ranges::all_of(nom, [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   c == '-';
        }))
        return false;
    return crochet == std::string_view::npos ||
           (cle.size() > crochet + 2 && cle.back() == ']' && cle.find(']') == cle.size() - 1);
}

// Desktops read entries with parsers of their own (GLib's key files, systemd's autostart
// generator); this one is lireGroupe. Wherever they could disagree the entry is not trusted:
// a line that is no blank line, comment, group or key, an indented line, a line continued by a
// backslash, a key before any group, [Desktop Entry] other than the one first group, a key
// given twice.
std::optional<std::string> structureDouteuse(std::string_view texte) {
    if (!utf8Valide(texte)) return "entry is not UTF-8";
    bool vuGroupe = false;
    bool vuEntree = false;
    bool dansEntree = false;
    std::set<std::string_view> cles;
    for (int numero = 1; !texte.empty(); ++numero) {
        const auto fin = texte.find('\n');
        const auto ligne = texte.substr(0, fin);
        texte = fin == std::string_view::npos ? std::string_view{} : texte.substr(fin + 1);
        const auto ici = [numero] { return " on line " + std::to_string(numero); };
        if (std::ranges::any_of(
                ligne, [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; }))
            return "control character" + ici();
        if (ligne.empty()) continue;
        if (ligne.back() == '\\') return "continued line" + ici();
        if (ligne.front() == ' ' || ligne.front() == '\t') return "indented line" + ici();
        if (ligne.front() == '#') continue;
        if (ligne.front() == '[') {
            if (ligne.back() != ']' || ligne.find(']') != ligne.size() - 1)
                return "malformed group" + ici();
            dansEntree = ligne.substr(1, ligne.size() - 2) == groupe;
            if (dansEntree ? vuEntree : !vuGroupe)
                return "[Desktop Entry] is not the one first group";
            vuGroupe = true;
            vuEntree = vuEntree || dansEntree;
            continue;
        }
        const auto egal = ligne.find('=');
        if (!vuGroupe || egal == std::string_view::npos || !cleValide(ligne.substr(0, egal)))
            return "malformed line" + ici();
        if (dansEntree && !cles.insert(ligne.substr(0, egal)).second)
            return "key given twice" + ici();
    }
    if (!vuEntree) return "no [Desktop Entry] group";
    return std::nullopt;
}

} // namespace

std::string texteEntree(const fs::path& executable) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Tavi Home\n"
           "Exec=" +
           valeur(commande(executable.string())) +
           "\n"
           "NoDisplay=true\n"
           "X-GNOME-Autostart-enabled=true\n";
}

std::optional<std::string> pourquoiPasLaNotre(std::string_view texte, const fs::path& executable) {
    if (auto doute = structureDouteuse(texte)) return doute;
    const auto entree = lireEntreeBureau(texte, {});
    if (!entree) return "no [Desktop Entry] group";
    if (entree->type != "Application") return "not an application";
    const auto cles = lireGroupe(texte, groupe);
    for (const auto& [cle, brute] : cles)
        if (std::ranges::find(clesPermises, std::string_view(cle).substr(0, cle.find('['))) ==
            clesPermises.end())
            return "key " + cle + " is not ours";
    // A desktop reads a boolean it does not understand as false: only the exact value that
    // keeps the entry running passes.
    if (auto cache = cles.find("Hidden"); cache != cles.end() && cache->second != "false")
        return "entry hidden";
    if (auto active = cles.find("X-GNOME-Autostart-enabled");
        active != cles.end() && active->second != "true")
        return "entry disabled";

    // Exec must be the very text we write for some path that is our executable: any other
    // way to write it may be split differently by one desktop or another.
    const auto arguments = argumentsExec(entree->exec);
    if (arguments.size() != 3 || arguments[0] != "env" || arguments[1] != "TAVI_AGENT=1")
        return "Exec does not start the agent";
    std::string chemin;
    for (std::size_t i = 0; i < arguments[2].size(); ++i) {
        chemin += arguments[2][i];
        if (arguments[2][i] == '%' && i + 1 < arguments[2].size() && arguments[2][i + 1] == '%')
            ++i;
    }
    if (commande(chemin) != entree->exec || !fs::path(chemin).is_absolute() ||
        !memeFichier(chemin, executable))
        return "Exec does not start this executable";
    return std::nullopt;
}

std::optional<std::string> pourquoiInactif(const OptionsDemarrage& options) {
    std::optional<fs::path> entree;
    if (options.configMaison.is_absolute() && present(dossierUtilisateur(options) / nomEntree))
        entree = dossierUtilisateur(options) / nomEntree;
    else
        entree = entreeSysteme(options);
    if (!entree) return "no autostart entry";
    // Bounded, and a FIFO is refused rather than waited on.
    const auto texte = lireFichierBorne(*entree, tailleMaxEntree);
    if (!texte) return entree->string() + " is not a readable entry";
    if (auto raison = pourquoiPasLaNotre(*texte, options.executable))
        return entree->string() + ": " + *raison;
    return std::nullopt;
}

std::optional<std::string> enregistrer(const OptionsDemarrage& options) {
    if (!options.configMaison.is_absolute()) return "no configuration folder";
    if (!pourquoiInactif(options)) return std::nullopt;
    if (auto erreur = remplacerFichier(dossierUtilisateur(options), nomEntree,
                                       texteEntree(options.executable), 0644))
        return erreur;
    // Read back as the session will read it.
    return pourquoiInactif(options);
}

void desenregistrer(const OptionsDemarrage& options) {
    if (!options.configMaison.is_absolute()) return;
    if (entreeSysteme(options)) {
        remplacerFichier(dossierUtilisateur(options), nomEntree,
                         "[Desktop Entry]\nType=Application\nName=Tavi Home\nHidden=true\n", 0644);
        return;
    }
    ::unlink((dossierUtilisateur(options) / nomEntree).c_str());
}

} // namespace tavi::DemarrageXdg
