#include "gardien/registre.h"

#include "gardien/fichiers_root.h"
#include "server/jeton.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace {

constexpr std::size_t tailleMaxCompte = 16 * 1024;

std::string texteDe(const nlohmann::json& objet, const char* cle) {
    auto it = objet.find(cle);
    if (it == objet.end() || !it->is_string())
        throw std::runtime_error(std::string(cle) + " manquant");
    return it->get<std::string>();
}

CompteRelie decoder(const std::string& octets, uid_t uid) {
    const auto objet = nlohmann::json::parse(octets);
    if (!objet.is_object()) throw std::runtime_error("pas un objet JSON");
    CompteRelie compte;
    const auto& u = objet.at("uid");
    if (!u.is_number_unsigned() || u.get<std::uint64_t>() != uid)
        throw std::runtime_error("uid différent du nom du fichier");
    compte.uid = uid;
    compte.compte = texteDe(objet, "compte");
    compte.jeton = texteDe(objet, "jeton");
    compte.ordinateurId = texteDe(objet, "ordinateur_id");
    compte.prenom = texteDe(objet, "prenom");
    if (!jetonValide(compte.jeton)) throw std::runtime_error("jeton invalide");
    return compte;
}

} // namespace

nlohmann::json CompteRelie::public_() const {
    return {{"uid", uid}, {"compte", compte}, {"ordinateur_id", ordinateurId}, {"prenom", prenom}};
}

Registre::Registre(std::string dossier) : dossier_(std::move(dossier)) {}

std::string Registre::fichier(uid_t uid) const {
    return dossier_ + "/comptes/" + std::to_string(uid) + ".json";
}

Attendu<std::optional<CompteRelie>, std::string> Registre::lire(uid_t uid) const {
    const std::string chemin = fichier(uid);
    struct stat etat {};
    if (lstat(chemin.c_str(), &etat) != 0 && errno == ENOENT) return std::optional<CompteRelie>{};
    auto octets = lireFichierRoot(chemin, tailleMaxCompte, 0600);
    if (!octets) return octets.error().message;
    try {
        return std::optional(decoder(*octets, uid));
    } catch (const nlohmann::json::exception&) {
        // The library's message quotes what it last read, which may be the token.
        return chemin + " : JSON illisible";
    } catch (const std::exception& e) {
        return chemin + " : " + e.what();
    }
}

Registre::Liste Registre::lister() const {
    Liste liste;
    const std::string dossier = dossier_ + "/comptes";
    DIR* d = opendir(dossier.c_str());
    if (!d) {
        if (errno != ENOENT) liste.erreurs.push_back(dossier + " : " + std::strerror(errno));
        return liste;
    }
    while (const dirent* entree = readdir(d)) {
        const std::string nom = entree->d_name;
        if (!nom.ends_with(".json")) continue;
        const std::string nombre = nom.substr(0, nom.size() - 5);
        if (nombre.empty() || nombre.size() > 10 ||
            nombre.find_first_not_of("0123456789") != std::string::npos)
            continue;
        const auto uid = std::stoull(nombre);
        if (uid > 0xfffffffeULL) continue;
        auto compte = lire(static_cast<uid_t>(uid));
        if (!compte)
            liste.erreurs.push_back(compte.error());
        else if (*compte)
            liste.comptes.push_back(**compte);
    }
    closedir(d);
    std::sort(liste.comptes.begin(), liste.comptes.end(),
              [](const auto& a, const auto& b) { return a.uid < b.uid; });
    return liste;
}

Attendu<bool, std::string> Registre::preparerDossiers() const {
    if (auto fait = dossierRoot(dossier_); !fait) return fait;
    return dossierRoot(dossier_ + "/comptes");
}

Attendu<bool, std::string> Registre::ecrire(const CompteRelie& compte) const {
    if (!jetonValide(compte.jeton)) return std::string("jeton invalide, non enregistré");
    if (auto fait = preparerDossiers(); !fait) return fait;
    const nlohmann::json objet = {{"uid", compte.uid},
                                  {"compte", compte.compte},
                                  {"jeton", compte.jeton},
                                  {"ordinateur_id", compte.ordinateurId},
                                  {"prenom", compte.prenom}};
    return remplacerFichier(
        fichier(compte.uid),
        objet.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n", 0600);
}

Attendu<bool, std::string> Registre::oublier(uid_t uid) const {
    const std::string chemin = fichier(uid);
    if (unlink(chemin.c_str()) == 0) return true;
    if (errno == ENOENT) return false;
    return chemin + " : " + std::strerror(errno);
}

} // namespace tavi
