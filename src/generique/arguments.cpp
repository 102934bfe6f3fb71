#include "generique/arguments.h"

#include "generique/utf8.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace tavi {

Arguments::Arguments(std::vector<std::string> tous) {
    for (auto& mot : tous) {
        if (!utf8Valide(mot)) throw ErreurUsage("argument qui n'est pas de l'UTF-8 valide");
        // "--option=valeur" is "--option valeur".
        if (auto egal = mot.find('='); mot.rfind("--", 0) == 0 && egal != std::string::npos) {
            mots.push_back(mot.substr(0, egal));
            mots.push_back(mot.substr(egal + 1));
        } else {
            mots.push_back(std::move(mot));
        }
    }
}

std::optional<std::string> Arguments::option(const std::string& nom) {
    auto valeurs = options(nom);
    if (valeurs.size() > 1) throw ErreurUsage(nom + " est donnée plusieurs fois");
    if (valeurs.empty()) return std::nullopt;
    return valeurs.front();
}

std::vector<std::string> Arguments::options(const std::string& nom) {
    std::vector<std::string> valeurs;
    for (auto it = mots.begin(); it != mots.end();) {
        if (*it != nom) {
            ++it;
            continue;
        }
        if (std::next(it) == mots.end()) throw ErreurUsage(nom + " attend une valeur");
        valeurs.push_back(*std::next(it));
        it = mots.erase(it, std::next(it, 2));
    }
    return valeurs;
}

bool Arguments::drapeau(const std::string& nom) {
    auto trouve = std::find(mots.begin(), mots.end(), nom);
    if (trouve == mots.end()) return false;
    mots.erase(trouve);
    return true;
}

std::string Arguments::suivant(const std::string& quoi) {
    auto mot = suivantOptionnel();
    if (!mot) throw ErreurUsage("il manque " + quoi);
    return *mot;
}

std::optional<std::string> Arguments::suivantOptionnel() {
    if (mots.empty()) return std::nullopt;
    std::string mot = mots.front();
    if (mot.rfind("--", 0) == 0) throw ErreurUsage("option inconnue ici : " + mot);
    mots.erase(mots.begin());
    return mot;
}

std::vector<std::string> Arguments::reste() {
    std::vector<std::string> tous;
    while (auto mot = suivantOptionnel())
        tous.push_back(*mot);
    return tous;
}

void Arguments::fin() {
    if (mots.empty()) return;
    if (mots.front().rfind("--", 0) == 0)
        throw ErreurUsage("option inconnue ici : " + mots.front());
    throw ErreurUsage("argument en trop : " + mots.front());
}

std::int64_t entierEntre(const std::string& texte, const std::string& quoi, std::int64_t min,
                         std::int64_t max) {
    std::int64_t valeur = 0;
    const char* debut = texte.data();
    const char* finTexte = texte.data() + texte.size();
    if (!texte.empty() && texte.front() == '+') ++debut;
    auto [fin, erreur] = std::from_chars(debut, finTexte, valeur);
    if (texte.empty() || erreur != std::errc() || fin != finTexte || valeur < min || valeur > max) {
        const bool borne = min != std::numeric_limits<std::int64_t>::min() ||
                           max != std::numeric_limits<std::int64_t>::max();
        throw ErreurUsage(
            quoi + " doit être un nombre entier" +
            (borne ? " de " + std::to_string(min) + " à " + std::to_string(max) : std::string()) +
            " : " + texte);
    }
    return valeur;
}

double nombreDe(const std::string& texte, const std::string& quoi) {
    errno = 0;
    char* fin = nullptr;
    const double d = std::strtod(texte.c_str(), &fin);
    if (texte.empty() || *fin != '\0' || errno == ERANGE || !std::isfinite(d) ||
        std::isspace(static_cast<unsigned char>(texte.front())))
        throw ErreurUsage(quoi + " doit être un nombre : " + texte);
    return d;
}

} // namespace tavi
