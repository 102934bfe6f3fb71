#pragma once

#include "generique/json_borne.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavi {

// Strict reading of documents received from the server: a wrong type anywhere fails the whole
// document with a message that names the member, so nothing half-read is ever acted on.

// "fin_ms" -> "finMs": each underscore removed and the letter after it capitalised. Keys
// without underscores pass unchanged, so camelCase keys are understood too.
std::string versCamel(std::string_view cle);
// "finMs" -> "fin_ms": a member's name the way the server spells its keys.
std::string versSnake(std::string_view nom);

std::int64_t lireEntier(const nlohmann::json& v, const std::string& chemin);
double lireDouble(const nlohmann::json& v, const std::string& chemin);
bool lireBooleen(const nlohmann::json& v, const std::string& chemin);
std::string lireTexte(const nlohmann::json& v, const std::string& chemin);
std::vector<std::string> lireTextes(const nlohmann::json& v, const std::string& chemin);
// An object of numbers; its keys are converted like member names.
std::map<std::string, double> lireCarteDoubles(const nlohmann::json& v, const std::string& chemin);

// One JSON object whose members are looked up by their camelCase name.
class ObjetLu {
public:
    ObjetLu(const nlohmann::json& valeur, std::string chemin);

    // The member's value, or nullptr when it is absent or null (null is the same as absence).
    const nlohmann::json* membre(std::string_view nom) const;
    // The path of a member for error messages, with its key as the document spells it.
    std::string chemin(std::string_view nom) const;

    template <class Lire>
    auto optionnel(std::string_view nom, Lire lire) const
        -> std::optional<decltype(lire(std::declval<const nlohmann::json&>(), std::string()))> {
        const nlohmann::json* v = membre(nom);
        if (!v) return std::nullopt;
        return lire(*v, chemin(nom));
    }

    template <class Lire>
    auto requis(std::string_view nom, Lire lire) const {
        const nlohmann::json* v = membre(nom);
        if (!v) throw DocumentInvalide(chemin(nom) + " : membre obligatoire absent");
        return lire(*v, chemin(nom));
    }

private:
    struct Cle {
        std::string camel;
        std::string telleQuelle;
        const nlohmann::json* valeur;
    };
    const Cle* trouver(std::string_view nom) const;

    std::vector<Cle> cles_;
    std::string chemin_;
};

// Reads every element of an array with `lire`, giving each its index in the path.
template <class Lire>
auto lireListe(const nlohmann::json& v, const std::string& chemin, Lire lire) {
    if (!v.is_array()) throw DocumentInvalide(chemin + " : liste attendue");
    std::vector<decltype(lire(v, chemin))> liste;
    liste.reserve(v.size());
    for (std::size_t i = 0; i < v.size(); ++i)
        liste.push_back(lire(v[i], chemin + "[" + std::to_string(i) + "]"));
    return liste;
}

} // namespace tavi
