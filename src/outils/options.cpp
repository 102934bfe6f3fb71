#include "outils/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace tavi::outils {

Options::Options(const std::vector<std::string>& arguments, const std::set<std::string>& avecValeur,
                 const std::set<std::string>& repetables, const std::set<std::string>& drapeaux) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& a = arguments[i];
        if (a.size() < 2 || a.rfind("--", 0) != 0) {
            positionnels_.push_back(a); // "-" (standard input) included
            continue;
        }
        std::string nom = a;
        std::optional<std::string> valeur;
        if (auto egal = a.find('='); egal != std::string::npos) {
            nom = a.substr(0, egal);
            valeur = a.substr(egal + 1);
        }
        if (drapeaux.contains(nom)) {
            if (valeur) throw ErreurUsage(nom + " ne prend pas de valeur");
            valeur = "";
        } else if (avecValeur.contains(nom)) {
            if (!valeur) {
                if (i + 1 >= arguments.size()) throw ErreurUsage(nom + " attend une valeur");
                valeur = arguments[++i];
            }
        } else {
            throw ErreurUsage("option inconnue : " + nom);
        }
        auto& liste = valeurs_[nom];
        if (!liste.empty() && !repetables.contains(nom))
            throw ErreurUsage(nom + " donnée deux fois");
        liste.push_back(*valeur);
    }
}

bool Options::present(const std::string& option) const {
    return valeurs_.contains(option);
}

std::optional<std::string> Options::valeur(const std::string& option) const {
    auto it = valeurs_.find(option);
    if (it == valeurs_.end()) return std::nullopt;
    return it->second.front();
}

const std::vector<std::string>& Options::valeurs(const std::string& option) const {
    static const std::vector<std::string> aucune;
    auto it = valeurs_.find(option);
    return it == valeurs_.end() ? aucune : it->second;
}

std::string Options::requis(const std::string& option) const {
    auto v = valeur(option);
    if (!v) throw ErreurUsage(option + " manque");
    return *v;
}

std::optional<std::int64_t> Options::entier(const std::string& option) const {
    auto v = valeur(option);
    if (!v) return std::nullopt;
    return lireEntierOption(option, *v);
}

std::optional<double> Options::nombre(const std::string& option) const {
    auto v = valeur(option);
    if (!v) return std::nullopt;
    return lireNombreOption(option, *v);
}

std::int64_t lireEntierOption(const std::string& option, const std::string& texte) {
    errno = 0;
    char* fin = nullptr;
    long long n = std::strtoll(texte.c_str(), &fin, 10);
    if (texte.empty() || *fin != '\0' || errno == ERANGE || std::isspace(texte.front()))
        throw ErreurUsage(option + " attend un entier, pas « " + texte + " »");
    return n;
}

double lireNombreOption(const std::string& option, const std::string& texte) {
    errno = 0;
    char* fin = nullptr;
    double d = std::strtod(texte.c_str(), &fin);
    if (texte.empty() || *fin != '\0' || errno == ERANGE || !std::isfinite(d) ||
        std::isspace(texte.front()))
        throw ErreurUsage(option + " attend un nombre, pas « " + texte + " »");
    return d;
}

} // namespace tavi::outils
