#include "platform/linux/entree_bureau.h"

#include "generique/utf8.h"

#include <cctype>

namespace tavi {

namespace {

// Names longer than this are no application's: a planted entry would only fill the parents'
// lists with them.
constexpr std::size_t longueurMaxNom = 512;

std::string_view sansBlancs(std::string_view texte) {
    const auto debut = texte.find_first_not_of(" \t");
    if (debut == std::string_view::npos) return {};
    const auto fin = texte.find_last_not_of(" \t");
    return texte.substr(debut, fin - debut + 1);
}

bool cleValide(std::string_view cle) {
    const auto crochet = cle.find('[');
    const auto nom = cle.substr(0, crochet);
    if (nom.empty()) return false;
    for (char c : nom)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '-')) return false;
    if (crochet == std::string_view::npos) return true;
    return cle.size() > crochet + 2 && cle.back() == ']';
}

// Unescapes a value; with `enListe`, splits it at the semicolons that are not escaped.
std::vector<std::string> decoder(std::string_view brute, bool enListe) {
    std::vector<std::string> items;
    std::string courant;
    for (std::size_t i = 0; i < brute.size(); ++i) {
        const char c = brute[i];
        if (c == '\\' && i + 1 < brute.size()) {
            const char suivant = brute[++i];
            switch (suivant) {
            case 's':
                courant += ' ';
                break;
            case 'n':
                courant += '\n';
                break;
            case 't':
                courant += '\t';
                break;
            case 'r':
                courant += '\r';
                break;
            case '\\':
                courant += '\\';
                break;
            case ';':
                if (!enListe) courant += '\\';
                courant += ';';
                break;
            default:
                courant += '\\';
                courant += suivant;
            }
        } else if (c == ';' && enListe) {
            items.push_back(std::move(courant));
            courant.clear();
        } else {
            courant += c;
        }
    }
    // A list ends with a semicolon, which leaves no item after it.
    if (!enListe || !courant.empty()) items.push_back(std::move(courant));
    return items;
}

std::string chaine(std::string_view brute) {
    return decoder(brute, false).front();
}

} // namespace

std::vector<std::string> variantesLocale(std::string_view locale) {
    if (locale.empty() || locale == "C" || locale == "POSIX") return {};
    std::string_view modificateur;
    if (const auto arobase = locale.find('@'); arobase != std::string_view::npos) {
        modificateur = locale.substr(arobase);
        locale = locale.substr(0, arobase);
    }
    locale = locale.substr(0, locale.find('.'));
    const auto souligne = locale.find('_');
    const auto langue = locale.substr(0, souligne);
    if (langue.empty()) return {};
    std::vector<std::string> variantes;
    auto ajouter = [&](std::string_view base, std::string_view modif) {
        if (!modif.empty()) variantes.push_back(std::string(base) + std::string(modif));
    };
    if (souligne != std::string_view::npos) {
        ajouter(locale, modificateur);
        variantes.emplace_back(locale);
    }
    ajouter(langue, modificateur);
    variantes.emplace_back(langue);
    return variantes;
}

std::map<std::string, std::string, std::less<>> lireGroupe(std::string_view texte,
                                                           std::string_view groupe) {
    std::map<std::string, std::string, std::less<>> cles;
    bool dedans = false;
    bool vu = false;
    while (!texte.empty()) {
        const auto finLigne = texte.find('\n');
        auto ligne = texte.substr(0, finLigne);
        texte =
            finLigne == std::string_view::npos ? std::string_view{} : texte.substr(finLigne + 1);
        if (!ligne.empty() && ligne.back() == '\r') ligne.remove_suffix(1);
        if (ligne.empty() || ligne.front() == '#') continue;
        if (ligne.front() == '[') {
            if (dedans) break;
            dedans = !vu && ligne.back() == ']' && ligne.substr(1, ligne.size() - 2) == groupe;
            vu = vu || dedans;
            continue;
        }
        if (!dedans) continue;
        const auto egal = ligne.find('=');
        if (egal == std::string_view::npos) continue;
        const auto cle = sansBlancs(ligne.substr(0, egal));
        if (!cleValide(cle)) continue;
        const auto valeur = ligne.substr(egal + 1);
        const auto debut = valeur.find_first_not_of(" \t");
        cles.emplace(std::string(cle),
                     debut == std::string_view::npos ? "" : std::string(valeur.substr(debut)));
    }
    return cles;
}

std::optional<EntreeBureau> lireEntreeBureau(std::string_view texte,
                                             const std::vector<std::string>& variantes) {
    if (texte.size() > tailleMaxEntree) return std::nullopt;
    const auto cles = lireGroupe(texte, "Desktop Entry");
    if (cles.empty()) return std::nullopt;
    auto brute = [&](const std::string& cle) -> const std::string* {
        auto it = cles.find(cle);
        return it == cles.end() ? nullptr : &it->second;
    };
    auto texteDe = [&](const char* cle) {
        const auto* valeur = brute(cle);
        return valeur ? chaine(*valeur) : std::string();
    };
    auto listeDe = [&](const char* cle) {
        const auto* valeur = brute(cle);
        return valeur ? decoder(*valeur, true) : std::vector<std::string>();
    };
    auto vrai = [&](const char* cle) {
        const auto* valeur = brute(cle);
        return valeur && *valeur == "true";
    };

    EntreeBureau entree;
    entree.type = texteDe("Type");
    std::vector<std::string> clesNom;
    for (const auto& variante : variantes)
        clesNom.push_back("Name[" + variante + "]");
    clesNom.emplace_back("Name");
    for (const auto& cle : clesNom) {
        const auto* valeur = brute(cle);
        if (!valeur) continue;
        auto nom = chaine(*valeur);
        if (nom.empty() || nom.size() > longueurMaxNom || !utf8Valide(nom)) continue;
        entree.nom = std::move(nom);
        break;
    }
    entree.exec = texteDe("Exec");
    if (const auto* valeur = brute("TryExec")) entree.tryExec = chaine(*valeur);
    entree.noDisplay = vrai("NoDisplay");
    entree.hidden = vrai("Hidden");
    entree.onlyShowIn = listeDe("OnlyShowIn");
    entree.notShowIn = listeDe("NotShowIn");
    entree.categories = listeDe("Categories");
    entree.typesMime = listeDe("MimeType");
    entree.startupWmClass = texteDe("StartupWMClass");
    entree.flatpak = texteDe("X-Flatpak");
    entree.snap = texteDe("X-SnapInstanceName");
    return entree;
}

std::vector<std::string> argumentsExec(std::string_view exec) {
    std::vector<std::string> arguments;
    std::string courant;
    bool dansArgument = false;
    bool entreGuillemets = false;
    for (std::size_t i = 0; i < exec.size(); ++i) {
        const char c = exec[i];
        if (entreGuillemets) {
            if (c == '"') {
                entreGuillemets = false;
            } else if (c == '\\' && i + 1 < exec.size() &&
                       std::string_view("\"`$\\").find(exec[i + 1]) != std::string_view::npos) {
                courant += exec[++i];
            } else {
                courant += c;
            }
        } else if (c == ' ' || c == '\t') {
            if (dansArgument) arguments.push_back(std::move(courant));
            courant.clear();
            dansArgument = false;
        } else {
            dansArgument = true;
            if (c == '"')
                entreGuillemets = true;
            else
                courant += c;
        }
    }
    if (dansArgument) arguments.push_back(std::move(courant));
    return arguments;
}

} // namespace tavi
