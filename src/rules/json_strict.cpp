#include "rules/json_strict.h"

#include <cmath>
#include <limits>

namespace tavi {

using nlohmann::json;

std::string versCamel(std::string_view cle) {
    std::string camel;
    camel.reserve(cle.size());
    bool majuscule = false;
    for (char c : cle) {
        if (c == '_') {
            majuscule = true;
            continue;
        }
        if (majuscule && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        majuscule = false;
        camel += c;
    }
    return camel;
}

std::string versSnake(std::string_view nom) {
    std::string cle;
    for (char ch : nom) {
        if (ch >= 'A' && ch <= 'Z') {
            cle += '_';
            ch = static_cast<char>(ch - 'A' + 'a');
        }
        cle += ch;
    }
    return cle;
}

namespace {

std::string typeDe(const json& v) {
    switch (v.type()) {
    case json::value_t::null:
        return "null";
    case json::value_t::boolean:
        return "un booléen";
    case json::value_t::string:
        return "un texte";
    case json::value_t::array:
        return "une liste";
    case json::value_t::object:
        return "un objet";
    default:
        return "un nombre";
    }
}

[[noreturn]] void mauvaisType(const std::string& chemin, const char* attendu, const json& v) {
    throw DocumentInvalide(chemin + " : " + attendu + " attendu, " + typeDe(v) + " trouvé");
}

} // namespace

std::int64_t lireEntier(const json& v, const std::string& chemin) {
    constexpr double borne = 9223372036854775808.0; // 2^63
    if (v.is_number_integer() && !v.is_number_unsigned()) return v.get<std::int64_t>();
    if (v.is_number_unsigned()) {
        auto u = v.get<std::uint64_t>();
        if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return static_cast<std::int64_t>(u);
        throw DocumentInvalide(chemin + " : entier hors des 64 bits");
    }
    if (v.is_number_float()) {
        double d = v.get<double>();
        if (std::trunc(d) != d)
            throw DocumentInvalide(chemin + " : entier attendu, " + v.dump() + " trouvé");
        if (d < -borne || d >= borne) throw DocumentInvalide(chemin + " : entier hors des 64 bits");
        return static_cast<std::int64_t>(d);
    }
    mauvaisType(chemin, "entier", v);
}

double lireDouble(const json& v, const std::string& chemin) {
    if (!v.is_number()) mauvaisType(chemin, "nombre", v);
    return v.get<double>();
}

bool lireBooleen(const json& v, const std::string& chemin) {
    if (!v.is_boolean()) mauvaisType(chemin, "booléen", v);
    return v.get<bool>();
}

std::string lireTexte(const json& v, const std::string& chemin) {
    if (!v.is_string()) mauvaisType(chemin, "texte", v);
    return v.get<std::string>();
}

std::vector<std::string> lireTextes(const json& v, const std::string& chemin) {
    return lireListe(v, chemin, lireTexte);
}

std::map<std::string, double> lireCarteDoubles(const json& v, const std::string& chemin) {
    if (!v.is_object()) mauvaisType(chemin, "objet", v);
    std::map<std::string, double> carte;
    for (const auto& [cle, valeur] : v.items())
        carte.emplace(versCamel(cle), lireDouble(valeur, chemin + "." + cle));
    return carte;
}

ObjetLu::ObjetLu(const json& valeur, std::string chemin) : chemin_(std::move(chemin)) {
    if (!valeur.is_object())
        mauvaisType(chemin_.empty() ? "le document" : chemin_, "objet", valeur);
    cles_.reserve(valeur.size());
    for (auto it = valeur.begin(); it != valeur.end(); ++it)
        cles_.push_back({versCamel(it.key()), it.key(), &it.value()});
}

const ObjetLu::Cle* ObjetLu::trouver(std::string_view nom) const {
    for (const Cle& c : cles_)
        if (c.camel == nom) return &c;
    return nullptr;
}

const json* ObjetLu::membre(std::string_view nom) const {
    const Cle* c = trouver(nom);
    if (!c || c->valeur->is_null()) return nullptr;
    return c->valeur;
}

std::string ObjetLu::chemin(std::string_view nom) const {
    const Cle* c = trouver(nom);
    // An absent member is named the way the server spells its keys.
    const std::string cle = c ? c->telleQuelle : versSnake(nom);
    return chemin_.empty() ? cle : chemin_ + "." + cle;
}

} // namespace tavi
