#include "observation/liste_applis.h"

#include "generique/utf8.h"
#include "observation/texte_borne.h"
#include "rules/programme.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <set>

namespace tavi::ListeApplis {

namespace {

constexpr std::size_t plafond = 400;
// Descriptions without a window or repeated are dropped after the scan: read somewhat more
// than the cap so that they do not leave the list short.
constexpr std::size_t plafondLecture = 2 * plafond;
constexpr std::size_t longueurMaxId = 255;
constexpr std::size_t longueurMaxTexte = 256;

// The name folded to lower case and turned into the process's collation key (LC_CTYPE for
// the case, LC_COLLATE for the order).
std::wstring cleDeTri(const std::string& nom) {
    std::wstring plie;
    for (std::string_view reste = nom; !reste.empty();) {
        char32_t point = 0;
        std::size_t n = sequenceUtf8(reste, point);
        if (n == 0) {
            point = 0xFFFD;
            n = 1;
        }
        reste.remove_prefix(n);
        plie += static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(point)));
    }
    std::wstring cle(plie.size() * 4 + 16, L'\0');
    std::size_t longueur = std::wcsxfrm(cle.data(), plie.c_str(), cle.size());
    if (longueur >= cle.size()) {
        cle.assign(longueur + 1, L'\0');
        longueur = std::wcsxfrm(cle.data(), plie.c_str(), cle.size());
    }
    cle.resize(std::min(longueur, cle.size()));
    return cle;
}

} // namespace

std::vector<ApplicationInstallee> lire(const Applications& applications) {
    std::vector<ApplicationInstallee> lues;
    try {
        lues = applications.lire(plafondLecture);
    } catch (...) {
        return {};
    }
    struct Rangee {
        std::wstring cle;
        ApplicationInstallee appli;
    };
    std::vector<Rangee> rangees;
    std::set<std::string> vus;
    for (auto& appli : lues) {
        // The descriptions are files anyone can write: a record that could not be sent as
        // JSON, or an identifier no application has, is left out.
        if (appli.arrierePlan || appli.identifiant.empty() ||
            appli.identifiant.size() > longueurMaxId || !utf8Valide(appli.identifiant) ||
            appli.identifiant == Programme::identifiantAgent() ||
            !vus.insert(appli.identifiant).second)
            continue;
        appli.nom = texteBorne(appli.nom, longueurMaxTexte);
        if (appli.categorie) appli.categorie = texteBorne(*appli.categorie, longueurMaxTexte);
        std::wstring cle = cleDeTri(appli.nom);
        rangees.push_back({std::move(cle), std::move(appli)});
    }
    std::sort(rangees.begin(), rangees.end(), [](const Rangee& a, const Rangee& b) {
        if (a.cle != b.cle) return a.cle < b.cle;
        return a.appli.identifiant < b.appli.identifiant;
    });
    std::vector<ApplicationInstallee> liste;
    for (auto& rangee : rangees) {
        if (liste.size() >= plafond) break;
        liste.push_back(std::move(rangee.appli));
    }
    return liste;
}

nlohmann::json enregistrements(const std::vector<ApplicationInstallee>& liste) {
    nlohmann::json tableau = nlohmann::json::array();
    for (const auto& appli : liste) {
        nlohmann::json enregistrement = {{"p", appli.identifiant}, {"n", appli.nom}};
        if (appli.categorie) enregistrement["c"] = *appli.categorie;
        tableau.push_back(std::move(enregistrement));
    }
    return tableau;
}

std::string empreinte(const std::vector<ApplicationInstallee>& liste) {
    std::string texte;
    for (const auto& appli : liste) {
        if (!texte.empty()) texte += ';';
        texte += appli.identifiant + "|" + appli.nom + "|" + appli.categorie.value_or("");
    }
    return texte;
}

} // namespace tavi::ListeApplis
