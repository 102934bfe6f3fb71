#include "gardien/reglages_fichier.h"

#include "gardien/fichiers_root.h"
#include "gardien/journal.h"

#include <filesystem>

namespace tavi {

namespace {

constexpr std::size_t tailleMax = 64 * 1024;

} // namespace

ReglagesFichier::ReglagesFichier(std::string chemin) : chemin_(std::move(chemin)) {
    auto lu = lireFichierRoot(chemin_, tailleMax, 0600);
    if (!lu) return;
    auto document = nlohmann::json::parse(*lu, nullptr, false);
    if (document.is_object()) valeurs_ = std::move(document);
}

std::optional<Valeur> ReglagesFichier::lire(const std::string& cle) const {
    const auto it = valeurs_.find(cle);
    if (it == valeurs_.end()) return std::nullopt;
    if (it->is_number()) return Valeur{it->get<double>()};
    if (it->is_string()) return Valeur{it->get<std::string>()};
    return std::nullopt;
}

void ReglagesFichier::ecrire(const std::string& cle, const Valeur& valeur) {
    if (const auto* nombre = std::get_if<double>(&valeur))
        valeurs_[cle] = *nombre;
    else if (const auto* texte = std::get_if<std::string>(&valeur))
        valeurs_[cle] = *texte;
    else
        return;
    change_ = true;
    if (groupes_ == 0) enregistrer();
}

void ReglagesFichier::supprimer(const std::string& cle) {
    if (valeurs_.erase(cle) == 0) return;
    change_ = true;
    if (groupes_ == 0) enregistrer();
}

void ReglagesFichier::grouper(const std::function<void()>& ecritures) {
    ++groupes_;
    ecritures();
    if (--groupes_ == 0 && change_) enregistrer();
}

void ReglagesFichier::enregistrer() {
    change_ = false;
    auto ecrit = dossierRoot(std::filesystem::path(chemin_).parent_path().string());
    if (ecrit) ecrit = remplacerFichier(chemin_, valeurs_.dump(), 0600);
    if (!ecrit)
        journal("état non enregistré : " + ecrit.error());
}

} // namespace tavi
