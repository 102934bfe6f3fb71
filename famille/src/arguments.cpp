#include "arguments.h"

#include "generique/utf8.h"

#include <algorithm>
#include <charconv>

namespace tavi::famille {

Arguments::Arguments(std::vector<std::string> mots_) : mots(std::move(mots_)) {
    // Everything typed may end up in a JSON answer, which must be valid UTF-8.
    for (const auto& mot : mots)
        if (!utf8Valide(mot)) throw ErreurUsage("argument qui n'est pas de l'UTF-8 valide");
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
    if (texte.empty() || erreur != std::errc() || fin != finTexte || valeur < min || valeur > max)
        throw ErreurUsage(quoi + " doit être un nombre entier de " + std::to_string(min) + " à " +
                          std::to_string(max) + " : " + texte);
    return valeur;
}

} // namespace tavi::famille
