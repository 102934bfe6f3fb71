#include "platform/linux/index_entrees.h"

#include "generique/utf8.h"
#include "platform/linux/categories_xdg.h"
#include "platform/linux/fichier_borne.h"

#include <algorithm>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace fs = std::filesystem;

namespace {

// Menus put entries at most a folder or two below `applications`; deeper is a planted maze.
constexpr int profondeurMax = 3;

std::string minuscules(std::string_view texte) {
    std::string resultat(texte);
    for (char& c : resultat)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return resultat;
}

bool executable(const fs::path& chemin) {
    struct stat etat {};
    return ::stat(chemin.c_str(), &etat) == 0 && S_ISREG(etat.st_mode) &&
           ::access(chemin.c_str(), X_OK) == 0;
}

bool programmeTrouve(const std::string& programme, const std::vector<fs::path>& chemins) {
    if (programme.empty()) return false;
    const fs::path chemin(programme);
    if (chemin.is_absolute()) return executable(chemin);
    if (programme.find('/') != std::string::npos) return false;
    return std::ranges::any_of(chemins, [&](const fs::path& d) { return executable(d / chemin); });
}

bool visibleDansMenu(const EntreeBureau& entree, const std::vector<std::string>& bureaux,
                     const std::vector<fs::path>& chemins) {
    if (entree.noDisplay || entree.hidden) return false;
    auto parmi = [&](const std::vector<std::string>& liste) {
        return std::ranges::any_of(bureaux,
                                   [&](const auto& b) { return std::ranges::count(liste, b) > 0; });
    };
    if (!entree.onlyShowIn.empty() && !parmi(entree.onlyShowIn)) return false;
    if (parmi(entree.notShowIn)) return false;
    return !entree.tryExec || programmeTrouve(*entree.tryExec, chemins);
}

// The desktop-file id of a file below `applications`: "kde/dolphin.desktop" is "kde-dolphin".
std::optional<std::string> identifiantDe(const fs::path& relatif) {
    std::string id = relatif.generic_string();
    constexpr std::string_view suffixe = ".desktop";
    if (id.size() <= suffixe.size() || !id.ends_with(suffixe) || !utf8Valide(id))
        return std::nullopt;
    id.resize(id.size() - suffixe.size());
    std::ranges::replace(id, '/', '-');
    return id;
}

} // namespace

std::shared_ptr<const IndexEntrees> IndexEntrees::charger(const EnvironnementXdg& environnement) {
    auto index = std::make_shared<IndexEntrees>();
    index->racineProc_ = environnement.racineProc;
    const auto variantes = variantesLocale(environnement.locale);
    const auto bureaux = environnement.bureaux();
    const auto chemins = environnement.dossiersProgrammes();

    index->confiance_ = environnement.confiance;
    index->installationFlatpak_ = environnement.installationFlatpak;
    // Per id, where its entry went (or -1 when an entry removed it) and whether the system
    // wrote it.
    struct Choix {
        std::ptrdiff_t rang;
        bool systeme;
    };
    std::map<std::string, Choix, std::less<>> choisis;
    // The folders the child cannot write first: theirs, however many files they hold, never
    // use up the reading before the system's entries are in. The XDG order ranks the rest.
    auto dossiers = environnement.dossiersDonnees();
    std::ranges::stable_partition(dossiers, [&](const fs::path& dossier) {
        return environnement.confiance.dossierSysteme(dossier / "applications");
    });
    std::size_t lues = 0;
    for (const auto& donnees : dossiers) {
        const fs::path racine = donnees / "applications";
        std::error_code erreur;
        fs::recursive_directory_iterator it(racine, fs::directory_options::skip_permission_denied,
                                            erreur);
        std::size_t fichiers = 0;
        for (; !erreur && it != fs::recursive_directory_iterator(); it.increment(erreur)) {
            if (++fichiers > fichiersMaxParDossier || lues >= entreesMax) break;
            if (it.depth() >= profondeurMax) it.disable_recursion_pending();
            const auto id = identifiantDe(it->path().lexically_relative(racine));
            if (!id) continue;
            const auto deja = choisis.find(*id);
            if (deja != choisis.end() && deja->second.systeme) continue;
            const bool systeme = environnement.confiance.systeme(it->path());
            if (deja != choisis.end() && !systeme) continue;
            ++lues;
            const auto texte = lireFichierBorne(it->path(), tailleMaxEntree);
            if (!texte) continue;
            auto entree = lireEntreeBureau(*texte, variantes);
            if (!entree) continue;
            if (deja != choisis.end() && deja->second.rang >= 0)
                index->entrees_[static_cast<std::size_t>(deja->second.rang)].identifiant.clear();
            Choix choix{-1, systeme};
            if (!entree->hidden && entree->type == "Application") {
                EntreeIndexee indexee{*id,          it->path(), std::move(*entree),
                                      std::nullopt, false,      systeme};
                indexee.categorie = categorieXdg(indexee.entree.categories);
                indexee.visible = visibleDansMenu(indexee.entree, bureaux, chemins);
                choix.rang = static_cast<std::ptrdiff_t>(index->entrees_.size());
                index->entrees_.push_back(std::move(indexee));
            }
            choisis.insert_or_assign(*id, choix);
        }
    }
    // A child's entry that a system one displaced.
    std::erase_if(index->entrees_, [](const EntreeIndexee& e) { return e.identifiant.empty(); });
    std::ranges::sort(index->entrees_, {}, &EntreeIndexee::identifiant);
    index->indexer();
    return index;
}

void IndexEntrees::indexer() {
    // Where several entries answer to one key, the first one a menu lists wins, else the first.
    auto noter = [&](Table& table, std::string cle, std::size_t rang) {
        if (cle.empty()) return;
        auto [it, nouveau] = table.emplace(std::move(cle), rang);
        if (!nouveau && !entrees_[it->second].visible && entrees_[rang].visible) it->second = rang;
    };
    for (std::size_t rang = 0; rang < entrees_.size(); ++rang) {
        const auto& e = entrees_[rang];
        noter(parIdentifiant_, e.identifiant, rang);
        noter(parEmplacement_, e.fichier.string(), rang);
        // Only the system's entries name running programs.
        if (!e.systeme) continue;
        noter(parIdentifiantMinuscule_, minuscules(e.identifiant), rang);
        noter(parClasseWm_, e.entree.startupWmClass, rang);
        noter(parFlatpak_, e.entree.flatpak, rang);
        if (auto programme = programmeLance(argumentsExec(e.entree.exec)))
            noter(parProgramme_, *programme, rang);
    }
}

const EntreeIndexee* IndexEntrees::chercher(const Table& table, std::string_view cle) const {
    auto it = table.find(cle);
    return it == table.end() ? nullptr : &entrees_[it->second];
}

const EntreeIndexee* IndexEntrees::parIdentifiant(std::string_view identifiant) const {
    return chercher(parIdentifiant_, identifiant);
}

const EntreeIndexee* IndexEntrees::parEmplacement(std::string_view fichier) const {
    return chercher(parEmplacement_, fichier);
}

} // namespace tavi
