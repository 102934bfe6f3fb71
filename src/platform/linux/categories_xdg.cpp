#include "platform/linux/categories_xdg.h"

#include "platform/linux/index_entrees.h"

#include <algorithm>
#include <map>

namespace tavi {

namespace {

// How precise a category is: the smaller the surer. A game's kind says more than Game, Game or
// Audio more than AudioVideo or Utility.
enum class Precision { genre, famille, large };

struct Correspondance {
    Precision precision;
    const char* categorie;
    bool exigeJeu = false; // a game's kind: only beside Game
};

const std::map<std::string, Correspondance, std::less<>>& correspondances() {
    using enum Precision;
    static const std::map<std::string, Correspondance, std::less<>> table = {
        {"ActionGame", {genre, "public.app-category.action-games", true}},
        {"AdventureGame", {genre, "public.app-category.adventure-games", true}},
        {"ArcadeGame", {genre, "public.app-category.arcade-games", true}},
        {"BoardGame", {genre, "public.app-category.board-games", true}},
        {"BlocksGame", {genre, "public.app-category.puzzle-games", true}},
        {"CardGame", {genre, "public.app-category.card-games", true}},
        {"KidsGame", {genre, "public.app-category.kids-games", true}},
        {"LogicGame", {genre, "public.app-category.puzzle-games", true}},
        {"RolePlaying", {genre, "public.app-category.role-playing-games", true}},
        {"Shooter", {genre, "public.app-category.action-games", true}},
        {"Simulation", {genre, "public.app-category.simulation-games", true}},
        {"SportsGame", {genre, "public.app-category.sports-games", true}},
        {"StrategyGame", {genre, "public.app-category.strategy-games", true}},
        {"Emulator", {genre, "public.app-category.games", true}},
        {"Amusement", {genre, "public.app-category.games", true}},
        {"Chat", {genre, "public.app-category.social-networking"}},
        {"InstantMessaging", {genre, "public.app-category.social-networking"}},
        {"IRCClient", {genre, "public.app-category.social-networking"}},
        {"Feed", {genre, "public.app-category.news"}},
        {"News", {genre, "public.app-category.news"}},
        {"WebBrowser", {genre, "public.app-category.productivity"}},
        {"Email", {genre, "public.app-category.productivity"}},
        {"TextEditor", {genre, "public.app-category.productivity"}},
        {"WordProcessor", {genre, "public.app-category.productivity"}},
        {"Spreadsheet", {genre, "public.app-category.productivity"}},
        {"Presentation", {genre, "public.app-category.productivity"}},
        {"Calendar", {genre, "public.app-category.productivity"}},
        {"ContactManagement", {genre, "public.app-category.productivity"}},
        {"Finance", {genre, "public.app-category.finance"}},
        {"Dictionary", {genre, "public.app-category.reference"}},
        {"Maps", {genre, "public.app-category.navigation"}},
        {"Photography", {genre, "public.app-category.photography"}},
        {"Music", {genre, "public.app-category.music"}},
        {"Midi", {genre, "public.app-category.music"}},
        {"Mixer", {genre, "public.app-category.music"}},
        {"Sequencer", {genre, "public.app-category.music"}},
        {"Tuner", {genre, "public.app-category.music"}},
        {"TV", {genre, "public.app-category.entertainment"}},
        {"Sports", {genre, "public.app-category.sports"}},
        {"IDE", {genre, "public.app-category.developer-tools"}},
        {"Debugger", {genre, "public.app-category.developer-tools"}},
        {"Astronomy", {genre, "public.app-category.education"}},
        {"Math", {genre, "public.app-category.education"}},
        {"Languages", {genre, "public.app-category.education"}},
        {"Geography", {genre, "public.app-category.education"}},
        {"Game", {famille, "public.app-category.games"}},
        {"Audio", {famille, "public.app-category.music"}},
        {"Video", {famille, "public.app-category.entertainment"}},
        {"Education", {famille, "public.app-category.education"}},
        {"Science", {famille, "public.app-category.education"}},
        {"Development", {famille, "public.app-category.developer-tools"}},
        {"Graphics", {famille, "public.app-category.graphics-design"}},
        {"Office", {famille, "public.app-category.productivity"}},
        // A player or an AudioVideo entry plays films as well as music: entertainment.
        {"AudioVideo", {large, "public.app-category.entertainment"}},
        {"Player", {large, "public.app-category.entertainment"}},
        {"Utility", {large, "public.app-category.utilities"}},
        {"System", {large, "public.app-category.utilities"}},
        {"Settings", {large, "public.app-category.utilities"}},
    };
    return table;
}

} // namespace

std::optional<std::string> categorieXdg(const std::vector<std::string>& categories) {
    const bool jeu = std::ranges::count(categories, "Game") > 0;
    const Correspondance* meilleure = nullptr;
    for (const auto& categorie : categories) {
        auto it = correspondances().find(categorie);
        if (it == correspondances().end() || (it->second.exigeJeu && !jeu)) continue;
        if (!meilleure || it->second.precision < meilleure->precision) meilleure = &it->second;
    }
    if (!meilleure) return std::nullopt;
    return meilleure->categorie;
}

CategoriesXdg::CategoriesXdg(std::shared_ptr<const IndexEntrees> index)
    : index_(std::move(index)) {}

void CategoriesXdg::remplacer(std::shared_ptr<const IndexEntrees> index) {
    index_ = std::move(index);
}

std::optional<std::string> CategoriesXdg::categorie(const Application& application) const {
    if (!index_) return std::nullopt;
    const EntreeIndexee* entree = nullptr;
    if (application.identifiant) entree = index_->parIdentifiant(*application.identifiant);
    if (!entree && application.emplacement)
        entree = index_->parEmplacement(*application.emplacement);
    // A category the child wrote would let a game pass for schoolwork.
    if (!entree || !entree->systeme) return std::nullopt;
    return entree->categorie;
}

} // namespace tavi
