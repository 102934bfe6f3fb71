#include "lecture.h"

#include "generique/json_borne.h"

#include <cstdio>
#include <date/date.h>

namespace tavi::famille {

using nlohmann::json;

namespace {

[[noreturn]] void refuser(const std::string& detail) {
    throw ErreurRequete(400, detail);
}

std::string guillemets(const std::string& nom) {
    return "« " + nom + " »";
}

std::string chiffre(double nombre) {
    char texte[32];
    std::snprintf(texte, sizeof texte, "%g", nombre);
    return texte;
}

} // namespace

json lireObjet(const std::string& corps) {
    if (corps.size() > tailleMaxCorps) refuser("La requête dépasse 1 Mio.");
    json document;
    try {
        document = analyserDocument(corps, tailleMaxCorps, profondeurMaxCorps);
    } catch (const DocumentInvalide& e) {
        refuser("Le corps de la requête n'est pas du JSON valide.");
    }
    if (!document.is_object()) refuser("Le corps de la requête doit être un objet JSON.");
    return document;
}

std::string texteDe(const json& valeur, const std::string& nom, std::size_t longueurMax) {
    if (!valeur.is_string()) refuser(guillemets(nom) + " doit être un texte.");
    const auto& texte = valeur.get_ref<const std::string&>();
    if (texte.size() > longueurMax) refuser(guillemets(nom) + " est trop long.");
    return texte;
}

double nombreDe(const json& valeur, const std::string& nom, double min, double max) {
    if (!valeur.is_number()) refuser(guillemets(nom) + " doit être un nombre.");
    double nombre = valeur.get<double>();
    if (!(nombre >= min && nombre <= max))
        refuser(guillemets(nom) + " doit être entre " + chiffre(min) + " et " + chiffre(max) + ".");
    return nombre;
}

Champs::Champs(const json& objet, std::string chemin_) : objet_(objet), chemin(std::move(chemin_)) {
    if (!objet_.is_object()) refuser(guillemets(chemin) + " doit être un objet.");
}

std::string Champs::nom(const char* cle) const {
    return chemin.empty() ? std::string(cle) : chemin + "." + cle;
}

const json* Champs::trouver(const char* cle) const {
    auto trouve = objet_.find(cle);
    if (trouve == objet_.end() || trouve->is_null()) return nullptr;
    return &*trouve;
}

std::string Champs::texte(const char* cle, std::size_t longueurMax) const {
    auto valeur = texteOptionnel(cle, longueurMax);
    if (!valeur) refuser("Il manque " + guillemets(nom(cle)) + ".");
    return *valeur;
}

std::optional<std::string> Champs::texteOptionnel(const char* cle, std::size_t longueurMax) const {
    const json* valeur = trouver(cle);
    if (!valeur) return std::nullopt;
    return texteDe(*valeur, nom(cle), longueurMax);
}

bool Champs::booleen(const char* cle) const {
    auto valeur = booleenOptionnel(cle);
    if (!valeur) refuser("Il manque " + guillemets(nom(cle)) + ".");
    return *valeur;
}

std::optional<bool> Champs::booleenOptionnel(const char* cle) const {
    const json* valeur = trouver(cle);
    if (!valeur) return std::nullopt;
    if (!valeur->is_boolean()) refuser(guillemets(nom(cle)) + " doit être un booléen.");
    return valeur->get<bool>();
}

std::int64_t Champs::entier(const char* cle, std::int64_t min, std::int64_t max) const {
    const json* valeur = trouver(cle);
    if (!valeur) refuser("Il manque " + guillemets(nom(cle)) + ".");
    // An unsigned above the signed range is out of bounds anyway; a float is refused even
    // when integral, as the agent refuses it in the other direction.
    if (valeur->is_number_unsigned() && valeur->get<std::uint64_t>() > std::uint64_t(max))
        refuser(guillemets(nom(cle)) + " est trop grand.");
    if (!valeur->is_number_integer())
        refuser(guillemets(nom(cle)) + " doit être un nombre entier.");
    auto nombre = valeur->get<std::int64_t>();
    if (nombre < min || nombre > max)
        refuser(guillemets(nom(cle)) + " doit être entre " + std::to_string(min) + " et " +
                std::to_string(max) + ".");
    return nombre;
}

double Champs::nombre(const char* cle, double min, double max) const {
    const json* valeur = trouver(cle);
    if (!valeur) refuser("Il manque " + guillemets(nom(cle)) + ".");
    return nombreDe(*valeur, nom(cle), min, max);
}

const json* Champs::objet(const char* cle) const {
    const json* valeur = trouver(cle);
    if (valeur && !valeur->is_object()) refuser(guillemets(nom(cle)) + " doit être un objet.");
    return valeur;
}

const json* Champs::tableau(const char* cle, std::size_t tailleMax) const {
    const json* valeur = trouver(cle);
    if (!valeur) return nullptr;
    if (!valeur->is_array()) refuser(guillemets(nom(cle)) + " doit être une liste.");
    if (valeur->size() > tailleMax)
        refuser(guillemets(nom(cle)) + " a plus de " + std::to_string(tailleMax) + " éléments.");
    return valeur;
}

bool estJour(const std::string& cle) {
    if (cle.size() != 10 || cle[4] != '-' || cle[7] != '-') return false;
    for (std::size_t i : {0u, 1u, 2u, 3u, 5u, 6u, 8u, 9u})
        if (cle[i] < '0' || cle[i] > '9') return false;
    auto nombre = [&](std::size_t debut, std::size_t n) { return std::stoi(cle.substr(debut, n)); };
    return date::year_month_day{date::year{nombre(0, 4)},
                                date::month{static_cast<unsigned>(nombre(5, 2))},
                                date::day{static_cast<unsigned>(nombre(8, 2))}}
        .ok();
}

} // namespace tavi::famille
