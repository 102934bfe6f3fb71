#include "gardien/lecteur_requete.h"

#include <algorithm>

namespace tavi {

namespace {

bool caractereJeton(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}

bool jetonHttp(std::string_view texte) {
    return !texte.empty() && std::all_of(texte.begin(), texte.end(),
                                         [](unsigned char c) { return caractereJeton(c); });
}

std::string minuscules(std::string_view texte) {
    std::string resultat(texte);
    for (auto& c : resultat)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return resultat;
}

// An origin-form target whose path the family server reads as we do: no dot segment, no
// backslash, no encoded dot or slash that a server could decode into one.
bool cibleValide(std::string_view cible) {
    if (cible.empty() || cible.front() != '/' || cible.size() > 4096) return false;
    for (unsigned char c : cible)
        if (c <= 0x20 || c >= 0x7f || c == '#' || c == '\\') return false;
    const std::string chemin = minuscules(cible.substr(0, cible.find('?')));
    if (chemin.find("%2e") != std::string::npos || chemin.find("%2f") != std::string::npos ||
        chemin.find("%5c") != std::string::npos || chemin.find("%00") != std::string::npos ||
        chemin.find("//") != std::string::npos)
        return false;
    std::size_t debut = 1;
    for (;;) {
        const auto fin = std::min(chemin.find('/', debut), chemin.size());
        const auto segment = std::string_view(chemin).substr(debut, fin - debut);
        if (segment == "." || segment == "..") return false;
        if (fin == chemin.size()) return true;
        debut = fin + 1;
    }
}

} // namespace

std::optional<std::string> RequeteRecue::entete(std::string_view nom) const {
    for (const auto& [n, v] : entetes)
        if (n == nom) return v;
    return std::nullopt;
}

std::string RequeteRecue::chemin() const {
    return cible.substr(0, cible.find('?'));
}

std::string_view LecteurRequete::reste() const {
    if (etat_ != Etat::Requete) return {};
    return std::string_view(tampon_).substr(debutCorps_ + tailleCorps_);
}

LecteurRequete::Etat LecteurRequete::refuser(int statut, std::string raison) {
    statut_ = statut;
    raison_ = std::move(raison);
    return etat_ = Etat::Erreur;
}

LecteurRequete::Etat LecteurRequete::fournir(std::string_view octets) {
    if (etat_ != Etat::Suite) return etat_;
    const std::size_t avant = tampon_.size();
    if (debutCorps_ == 0) {
        // Never more than the head's bound plus its end, whatever arrives at once.
        const std::size_t place = bornes_.teteMax + 4 - std::min(avant, bornes_.teteMax + 4);
        tampon_.append(
            octets.substr(0, std::min(octets.size(), place + bornes_.corpsBattementMax)));
        // The end of the head may straddle two pieces.
        const std::size_t depuis = avant >= 3 ? avant - 3 : 0;
        const auto fin = tampon_.find("\r\n\r\n", depuis);
        if (fin == std::string::npos ? tampon_.size() > bornes_.teteMax + 3 : fin > bornes_.teteMax)
            return refuser(431,
                           "en-tête de plus de " + std::to_string(bornes_.teteMax) + " octets");
        if (fin == std::string::npos) return etat_;
        if (auto etat = lireTete(fin); etat != Etat::Suite) return etat;
    } else {
        tampon_.append(octets.substr(
            0, std::min(octets.size(), debutCorps_ + tailleCorps_ + bornes_.teteMax - avant)));
    }
    if (tampon_.size() >= debutCorps_ + tailleCorps_) {
        requete_.corps = tampon_.substr(debutCorps_, tailleCorps_);
        etat_ = Etat::Requete;
    }
    return etat_;
}

LecteurRequete::Etat LecteurRequete::lireTete(std::size_t finTete) {
    const std::string_view tete = std::string_view(tampon_).substr(0, finTete);
    for (unsigned char c : tete)
        if (c == 0) return refuser(400, "octet nul dans l'en-tête");
    // Every line ends with CR LF: a lone CR or LF is read as a line end by some and not others.
    for (std::size_t i = 0; i < tete.size(); ++i) {
        if (tete[i] == '\r' && (i + 1 >= tete.size() || tete[i + 1] != '\n'))
            return refuser(400, "CR seul dans l'en-tête");
        if (tete[i] == '\n' && (i == 0 || tete[i - 1] != '\r'))
            return refuser(400, "LF seul dans l'en-tête");
    }
    std::vector<std::string_view> lignes;
    for (std::size_t debut = 0;;) {
        const auto fin = tete.find("\r\n", debut);
        lignes.push_back(tete.substr(debut, fin == std::string_view::npos ? fin : fin - debut));
        if (fin == std::string_view::npos) break;
        debut = fin + 2;
    }
    if (lignes.size() - 1 > bornes_.lignesMax)
        return refuser(431, "plus de " + std::to_string(bornes_.lignesMax) + " lignes d'en-tête");

    const std::string_view premiere = lignes.front();
    const auto espace1 = premiere.find(' ');
    const auto espace2 =
        espace1 == std::string_view::npos ? espace1 : premiere.find(' ', espace1 + 1);
    if (espace2 == std::string_view::npos ||
        premiere.find(' ', espace2 + 1) != std::string_view::npos)
        return refuser(400, "ligne de requête mal formée");
    const auto methode = premiere.substr(0, espace1);
    const auto cible = premiere.substr(espace1 + 1, espace2 - espace1 - 1);
    const auto version = premiere.substr(espace2 + 1);
    if (!jetonHttp(methode)) return refuser(400, "méthode mal formée");
    if (version != "HTTP/1.1" && version != "HTTP/1.0")
        return refuser(505, "version non prise en charge");
    if (!cibleValide(cible)) return refuser(400, "cible mal formée");
    requete_.methode = std::string(methode);
    requete_.cible = std::string(cible);

    std::optional<std::size_t> longueur;
    for (std::size_t i = 1; i < lignes.size(); ++i) {
        const std::string_view ligne = lignes[i];
        if (!ligne.empty() && (ligne.front() == ' ' || ligne.front() == '\t'))
            return refuser(400, "en-tête replié");
        const auto deuxPoints = ligne.find(':');
        if (deuxPoints == std::string_view::npos || !jetonHttp(ligne.substr(0, deuxPoints)))
            return refuser(400, "ligne d'en-tête mal formée");
        std::string_view valeur = ligne.substr(deuxPoints + 1);
        for (unsigned char c : valeur)
            if ((c < 0x20 && c != '\t') || c == 0x7f)
                return refuser(400, "caractère de contrôle dans un en-tête");
        while (!valeur.empty() && (valeur.front() == ' ' || valeur.front() == '\t'))
            valeur.remove_prefix(1);
        while (!valeur.empty() && (valeur.back() == ' ' || valeur.back() == '\t'))
            valeur.remove_suffix(1);
        std::string nom = minuscules(ligne.substr(0, deuxPoints));
        if (nom == "transfer-encoding")
            return refuser(400, "Transfer-Encoding refusé : Content-Length seulement");
        if (nom == "content-length") {
            if (longueur) return refuser(400, "Content-Length en double");
            if (valeur.empty() || valeur.size() > 18 ||
                valeur.find_first_not_of("0123456789") != std::string_view::npos)
                return refuser(valeur.size() > 18 ? 413 : 400, "Content-Length mal formé");
            longueur = std::stoull(std::string(valeur));
        }
        requete_.entetes.emplace_back(std::move(nom), std::string(valeur));
    }
    const std::size_t corpsMax =
        requete_.chemin() == cheminBattement ? bornes_.corpsBattementMax : bornes_.corpsMax;
    if (longueur.value_or(0) > corpsMax)
        return refuser(413, "corps de plus de " + std::to_string(corpsMax) + " octets");
    debutCorps_ = finTete + 4;
    tailleCorps_ = longueur.value_or(0);
    return Etat::Suite;
}

} // namespace tavi
