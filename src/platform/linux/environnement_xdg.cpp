#include "platform/linux/environnement_xdg.h"

#include <algorithm>
#include <cstdlib>

namespace tavi {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> decouper(std::string_view texte) {
    std::vector<std::string> parties;
    while (!texte.empty()) {
        const auto deuxPoints = texte.find(':');
        if (deuxPoints != 0) parties.emplace_back(texte.substr(0, deuxPoints));
        if (deuxPoints == std::string_view::npos) break;
        texte.remove_prefix(deuxPoints + 1);
    }
    return parties;
}

std::string variable(const char* nom) {
    const char* valeur = std::getenv(nom);
    return valeur ? valeur : "";
}

} // namespace

EnvironnementXdg EnvironnementXdg::duProcessus() {
    EnvironnementXdg environnement;
    environnement.maison = variable("HOME");
    environnement.donneesMaison = variable("XDG_DATA_HOME");
    environnement.donnees = variable("XDG_DATA_DIRS");
    environnement.bureauCourant = variable("XDG_CURRENT_DESKTOP");
    environnement.chemins = variable("PATH");
    for (const char* nom : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        environnement.locale = variable(nom);
        if (!environnement.locale.empty()) break;
    }
    environnement.dossiersExportes = {"/usr/local/share", "/usr/share",
                                      "/var/lib/flatpak/exports/share", "/var/lib/snapd/desktop"};
    return environnement;
}

std::vector<fs::path> EnvironnementXdg::dossiersDonnees() const {
    std::vector<fs::path> dossiers;
    auto ajouter = [&](const fs::path& dossier) {
        if (!dossier.is_absolute()) return;
        auto propre = dossier.lexically_normal();
        if (!propre.has_filename() && propre != propre.root_path()) propre = propre.parent_path();
        if (std::ranges::find(dossiers, propre) == dossiers.end()) dossiers.push_back(propre);
    };
    const fs::path home(maison);
    if (fs::path(donneesMaison).is_absolute())
        ajouter(donneesMaison);
    else if (home.is_absolute())
        ajouter(home / ".local/share");
    auto systeme = decouper(donnees);
    std::erase_if(systeme, [](const std::string& d) { return !fs::path(d).is_absolute(); });
    if (systeme.empty()) systeme = {"/usr/local/share", "/usr/share"};
    for (const auto& dossier : systeme)
        ajouter(dossier);
    if (home.is_absolute()) ajouter(home / ".local/share/flatpak/exports/share");
    for (const auto& dossier : dossiersExportes)
        ajouter(dossier);
    return dossiers;
}

std::vector<std::string> EnvironnementXdg::bureaux() const {
    return decouper(bureauCourant);
}

std::vector<fs::path> EnvironnementXdg::dossiersProgrammes() const {
    std::vector<fs::path> dossiers;
    for (auto& dossier : decouper(chemins))
        if (fs::path(dossier).is_absolute()) dossiers.emplace_back(dossier);
    return dossiers;
}

} // namespace tavi
