#include "platform/linux/demarrage_systemd.h"

#include "generique/utf8.h"
#include "platform/linux/fichier_atomique.h"
#include "platform/linux/fichier_borne.h"
#include "platform/linux/gestionnaire_systemd.h"

#include <sys/stat.h>
#include <unistd.h>

namespace tavi::DemarrageSystemd {

namespace fs = std::filesystem;

namespace {

constexpr const char* cible = "graphical-session.target";
// Our unit holds well under a kilobyte: a larger file is not ours.
constexpr std::size_t tailleMaxUnite = 16 * 1024;

fs::path dossierUnites(const OptionsDemarrage& options) {
    return options.configMaison / "systemd/user";
}

// ExecStart's command. systemd expands specifiers (%) over the whole line, substitutes $ in the
// arguments only, and refuses an executable whose own name holds a quote or a backslash,
// however quoted: such a path goes to env as an argument instead.
std::string commande(const std::string& executable) {
    const bool direct = executable.find_first_of("\"'\\") == std::string::npos;
    std::string ligne = direct ? "\"" : "/usr/bin/env \"";
    for (char c : executable) {
        if (c == '%')
            ligne += '%';
        else if (!direct && (c == '"' || c == '\\'))
            ligne += '\\';
        else if (!direct && c == '$')
            ligne += '$';
        ligne += c;
    }
    return ligne + '"';
}

// A text from the manager, fit for a log line.
std::string cite(std::string_view texte) {
    return pourTerminal(texte.substr(0, 200));
}

bool memeFichier(const fs::path& a, const fs::path& b) {
    std::error_code erreur;
    return a.lexically_normal() == b.lexically_normal() || fs::equivalent(a, b, erreur);
}

} // namespace

std::string texteUnite(const fs::path& executable) {
    return "[Unit]\n"
           "Description=Tavi Home\n"
           "PartOf=graphical-session.target\n"
           "After=graphical-session.target\n"
           "\n"
           "[Service]\n"
           "ExecStart=" +
           commande(executable.string()) +
           "\n"
           "Environment=TAVI_AGENT=1\n"
           "Restart=always\n"
           "RestartSec=2\n"
           "\n"
           "[Install]\n"
           "WantedBy=graphical-session.target\n";
}

bool sessionGeree(GestionnaireSystemd& gestionnaire) {
    // GetUnit, not LoadUnit: a target nobody loaded is not active, and is best left unloaded.
    const auto objet = gestionnaire.objetUnite(cible, false);
    if (!objet) return false;
    const auto etat = gestionnaire.texte(*objet, "ActiveState");
    return etat && *etat == "active";
}

std::optional<std::string> pourquoiInactif(const OptionsDemarrage& options,
                                           GestionnaireSystemd& gestionnaire) {
    if (!options.configMaison.is_absolute()) return "no configuration folder";
    const auto etat = gestionnaire.etatFichier(nomUnite);
    if (!etat) return "GetUnitFileState: " + gestionnaire.erreur();
    // Only "enabled" starts the unit at the next login: "enabled-runtime" links it until the
    // next boot only, "linked" makes the file known without any target wanting it, and the
    // others (disabled, masked, static, ...) never start it.
    if (*etat != "enabled") return "unit file state " + cite(*etat);

    // The file is what the next session's manager reads; the loaded unit tells whether
    // anything else overrides it: a file of that name found first, drop-ins, or changes on
    // disk that the manager has not read yet (a drop-in just added).
    const auto fichier = dossierUnites(options) / nomUnite;
    const auto contenu = lireFichierBorne(fichier, tailleMaxUnite);
    if (!contenu || *contenu != texteUnite(options.executable))
        return fichier.string() + " does not start this executable";
    const auto objet = gestionnaire.objetUnite(nomUnite, true);
    if (!objet) return "LoadUnit: " + gestionnaire.erreur();
    const auto fragment = gestionnaire.texte(*objet, "FragmentPath");
    const auto ajouts = gestionnaire.liste(*objet, "DropInPaths");
    const auto aRelire = gestionnaire.booleen(*objet, "NeedDaemonReload");
    if (!fragment || !ajouts || !aRelire) return "unit properties: " + gestionnaire.erreur();
    if (!memeFichier(*fragment, fichier)) return "unit loaded from " + cite(*fragment);
    if (!ajouts->empty()) return "unit overridden by " + cite(ajouts->front());
    if (*aRelire) return "unit changed since the manager read it";
    return std::nullopt;
}

std::optional<std::string> enregistrer(const OptionsDemarrage& options,
                                       GestionnaireSystemd& gestionnaire) {
    if (!options.configMaison.is_absolute()) return "no configuration folder";
    if (!pourquoiInactif(options, gestionnaire)) return std::nullopt;
    if (auto erreur = remplacerFichier(dossierUnites(options), nomUnite,
                                       texteUnite(options.executable), 0644))
        return erreur;
    if (auto erreur = gestionnaire.recharger()) return erreur;
    // Enabled, not started: the copy running now stays the only one until the next login.
    if (auto erreur = gestionnaire.activer(nomUnite)) return erreur;
    return pourquoiInactif(options, gestionnaire);
}

void desenregistrer(const OptionsDemarrage& options) {
    if (!options.configMaison.is_absolute()) return;
    const auto fichier = dossierUnites(options) / nomUnite;
    // The link that enabling makes, removed here too when no manager answers: a link only,
    // never a file that someone else put there.
    const auto lien = dossierUnites(options) / (std::string(cible) + ".wants") / nomUnite;
    struct stat etat {};
    const bool lie = ::lstat(lien.c_str(), &etat) == 0 && S_ISLNK(etat.st_mode);
    if (!lie && ::lstat(fichier.c_str(), &etat) != 0) return;
    const auto gestionnaire =
        GestionnaireSystemd::joindre(options.dossierExecution, options.adresseBus);
    if (gestionnaire) gestionnaire->desactiver(nomUnite);
    ::unlink(fichier.c_str());
    if (lie) ::unlink(lien.c_str());
    if (gestionnaire) gestionnaire->recharger();
}

} // namespace tavi::DemarrageSystemd
