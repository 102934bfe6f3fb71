#include "observation/navigateurs.h"

#include <algorithm>

namespace tavi::Navigateurs {

namespace {

char minuscule(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool couvre(std::string_view domaine, std::string_view entree) {
    if (domaine.size() == entree.size()) return domaine == entree;
    return domaine.size() > entree.size() && domaine.ends_with(entree) &&
           domaine[domaine.size() - entree.size() - 1] == '.';
}

// An entry of the family's lists, written by a parent: case, surrounding spaces, a leading
// "www." and a final dot do not matter.
std::string entreeFamille(std::string_view entree) {
    while (!entree.empty() && static_cast<unsigned char>(entree.front()) <= ' ')
        entree.remove_prefix(1);
    while (!entree.empty() &&
           (static_cast<unsigned char>(entree.back()) <= ' ' || entree.back() == '.'))
        entree.remove_suffix(1);
    std::string resultat(entree);
    std::transform(resultat.begin(), resultat.end(), resultat.begin(), minuscule);
    if (resultat.starts_with("www.")) resultat.erase(0, 4);
    return resultat;
}

bool couvert(std::string_view domaine, const std::optional<std::vector<std::string>>& liste) {
    if (!liste) return false;
    return std::any_of(liste->begin(), liste->end(), [&](const std::string& brute) {
        const std::string entree = entreeFamille(brute);
        return !entree.empty() && couvre(domaine, entree);
    });
}

bool adulte(std::string_view domaine) {
    const auto& table = domainesAdultes();
    // The domain itself, then each of its parents: casino.com covers www2.casino.com.
    for (std::size_t debut = 0;;) {
        if (table.count(std::string(domaine.substr(debut)))) return true;
        const auto point = domaine.find('.', debut);
        if (point == std::string_view::npos) return false;
        debut = point + 1;
    }
}

std::string script(const std::string& identifiant, const std::string& milieu,
                   const std::string& onglet, const char* fin) {
    return "with timeout of 3 seconds\n  tell application id \"" + identifiant + milieu + onglet +
           fin;
}

} // namespace

const std::map<std::string, std::string>& ongletsMac() {
    static const std::map<std::string, std::string> table = {
        {"com.apple.Safari", "current tab"},
        {"com.apple.SafariTechnologyPreview", "current tab"},
        {"com.google.Chrome", "active tab"},
        {"com.google.Chrome.beta", "active tab"},
        {"com.microsoft.edgemac", "active tab"},
        {"com.brave.Browser", "active tab"},
        {"company.thebrowser.Browser", "active tab"},
        {"com.vivaldi.Vivaldi", "active tab"},
    };
    return table;
}

std::optional<std::string> scriptLecture(const std::string& identifiant) {
    auto it = ongletsMac().find(identifiant);
    if (it == ongletsMac().end()) return std::nullopt;
    return script(identifiant,
                  "\"\n    if (count of windows) is 0 then return \"\"\n    return URL of ",
                  it->second, " of front window\n  end tell\nend timeout");
}

std::optional<std::string> scriptVidage(const std::string& identifiant) {
    auto it = ongletsMac().find(identifiant);
    if (it == ongletsMac().end()) return std::nullopt;
    return script(identifiant, "\" to set URL of ", it->second,
                  " of front window to \"about:blank\"\nend timeout");
}

const std::vector<std::string>& motsCles() {
    static const std::vector<std::string> mots = {
        "porn",   "xxx",    "hentai", "camgirl", "camsex",   "escort",  "nudes",         "nsfw",
        "sexcam", "casino", "poker",  "betting", "gambling", "jackpot", "paris-sportifs"};
    return mots;
}

bool estBloque(std::string_view domaine, const FiltreJSON& filtre) {
    // The family's allowed domains win over everything else.
    if (couvert(domaine, filtre.domainesAutorises)) return false;
    if (couvert(domaine, filtre.domainesBloques)) return true;
    // The built-in lists apply only when the filter is switched on; the family's own lists
    // apply whenever a filter record is present.
    if (filtre.actif != true) return false;
    if (adulte(domaine)) return true;
    return std::any_of(motsCles().begin(), motsCles().end(), [&](const std::string& mot) {
        return domaine.find(mot) != std::string_view::npos;
    });
}

bool filtreUtile(const std::optional<Consigne>& consigne) {
    if (!consigne || !consigne->filtreWeb) return false;
    const FiltreJSON& filtre = *consigne->filtreWeb;
    if (filtre.actif == true) return true;
    // An allowed list alone has nothing to enforce.
    return filtre.domainesBloques && !filtre.domainesBloques->empty();
}

Lecture lire(Navigation& navigation, const std::string& identifiant) {
    if (!lisibles().count(identifiant)) return Lecture::illisible();
    try {
        Lecture lecture = navigation.lire(identifiant);
        if (lecture.cas != Lecture::Cas::url) return {lecture.cas, {}};
        if (lecture.adresse.empty()) return Lecture::aucune();
        return lecture;
    } catch (...) {
        return Lecture::illisible();
    }
}

void vider(Navigation& navigation, const std::string& identifiant) {
    if (!lisibles().count(identifiant)) return;
    try {
        navigation.vider(identifiant);
    } catch (...) {
        // A tab that could not be blanked is read again on the next tick.
    }
}

} // namespace tavi::Navigateurs
