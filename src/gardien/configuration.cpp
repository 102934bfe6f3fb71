#include "gardien/configuration.h"

#include "gardien/fichiers_root.h"

#include <cerrno>
#include <sstream>
#include <sys/stat.h>
#include <vector>

namespace tavi {

namespace {

constexpr std::size_t tailleMaxConf = 64 * 1024;

std::string rogner(std::string_view texte) {
    const auto debut = texte.find_first_not_of(" \t\r");
    if (debut == std::string_view::npos) return {};
    const auto fin = texte.find_last_not_of(" \t\r");
    return std::string(texte.substr(debut, fin - debut + 1));
}

bool boucleLocale(std::string hote) {
    for (auto& c : hote)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (hote == "localhost" || hote == "[::1]") return true;
    // 127.0.0.0/8 written as four decimal numbers: "127.1" or "0x7f.0.0.1" are refused rather
    // than interpreted.
    int nombres = 0;
    std::size_t i = 0;
    while (i <= hote.size()) {
        const auto fin = std::min(hote.find('.', i), hote.size());
        const std::string partie = hote.substr(i, fin - i);
        if (partie.empty() || partie.size() > 3 ||
            partie.find_first_not_of("0123456789") != std::string::npos || std::stoi(partie) > 255)
            return false;
        if (nombres == 0 && partie != "127") return false;
        ++nombres;
        i = fin + 1;
    }
    return nombres == 4;
}

} // namespace

std::string refusAdresseServeur(const std::string& adresse) {
    for (unsigned char c : adresse)
        if (c <= ' ' || c == 0x7f)
            return "l'adresse contient un espace ou un caractère de contrôle";
    const bool https = adresse.starts_with("https://");
    if (!https && !adresse.starts_with("http://")) return "l'adresse doit commencer par https://";
    const auto debut = adresse.find("://") + 3;
    const auto fin = std::min(adresse.find_first_of("/?#", debut), adresse.size());
    std::string autorite = adresse.substr(debut, fin - debut);
    if (autorite.find('@') != std::string::npos)
        return "l'adresse ne doit pas contenir d'identifiants";
    std::string hote = autorite;
    if (hote.starts_with("[")) {
        const auto ferme = hote.find(']');
        if (ferme == std::string::npos) return "adresse IPv6 mal fermée";
        hote.erase(ferme + 1);
    } else if (const auto port = hote.rfind(':'); port != std::string::npos) {
        hote.erase(port);
    }
    if (hote.empty()) return "l'adresse ne nomme aucun serveur";
    if (!https && !boucleLocale(hote))
        return "http:// n'est permis que vers cet ordinateur (127.0.0.1, ::1, localhost) : "
               "ailleurs, https://";
    return {};
}

Attendu<Configuration, std::string> lireConfiguration(const std::string& chemin) {
    struct stat etat {};
    if (lstat(chemin.c_str(), &etat) != 0 && errno == ENOENT) return Configuration{};
    auto contenu = lireFichierRoot(chemin, tailleMaxConf);
    if (!contenu) return contenu.error().message;
    Configuration configuration;
    std::istringstream flux(*contenu);
    std::string ligne;
    for (int numero = 1; std::getline(flux, ligne); ++numero) {
        const std::string propre = rogner(ligne);
        if (propre.empty() || propre.front() == '#') continue;
        const auto egal = propre.find('=');
        if (egal == std::string::npos)
            return chemin + ":" + std::to_string(numero) + " : « cle = valeur » attendu";
        const std::string cle = rogner(std::string_view(propre).substr(0, egal));
        const std::string valeur = rogner(std::string_view(propre).substr(egal + 1));
        if (cle == "serveur") {
            if (auto refus = refusAdresseServeur(valeur); !refus.empty())
                return chemin + ":" + std::to_string(numero) + " : " + refus;
            configuration.serveur = valeur;
        }
    }
    return configuration;
}

Attendu<bool, std::string> ecrireServeur(const std::string& chemin, const std::string& adresse) {
    if (auto refus = refusAdresseServeur(adresse); !refus.empty()) return refus;
    std::string ancien;
    struct stat etat {};
    if (lstat(chemin.c_str(), &etat) == 0) {
        auto lu = lireFichierRoot(chemin, tailleMaxConf);
        if (!lu) return lu.error().message;
        ancien = *lu;
    }
    std::string nouveau;
    bool remplace = false;
    std::istringstream flux(ancien);
    std::string ligne;
    while (std::getline(flux, ligne)) {
        const std::string propre = rogner(ligne);
        const auto egal = propre.find('=');
        if (!propre.starts_with("#") && egal != std::string::npos &&
            rogner(std::string_view(propre).substr(0, egal)) == "serveur") {
            if (remplace) continue;
            ligne = "serveur = " + adresse;
            remplace = true;
        }
        nouveau += ligne + "\n";
    }
    if (!remplace) nouveau += "serveur = " + adresse + "\n";
    return remplacerFichier(chemin, nouveau, 0644);
}

} // namespace tavi
