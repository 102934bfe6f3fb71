#pragma once

#include "platform/categories_applis.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavi {

class IndexEntrees;

// The "public.app-category.*" category of a desktop entry's Categories list, so that the rule
// logic reads one form on every platform. The most precise category the entry declares
// wins (ArcadeGame over Game, Audio over AudioVideo, WebBrowser over Network), in the entry's
// order among equals; a game's sub-category counts only beside Game, as the entry rules say.
// Absent when no declared category has a counterpart.
std::optional<std::string> categorieXdg(const std::vector<std::string>& categories);

// The categories of the applications in the entries' index, answered from memory. Main thread:
// the index is read elsewhere and handed over whole by `remplacer`.
class CategoriesXdg : public CategoriesApplis {
public:
    explicit CategoriesXdg(std::shared_ptr<const IndexEntrees> index = nullptr);

    void remplacer(std::shared_ptr<const IndexEntrees> index);

    // By the application's entry id, else by its entry file; only a system entry's.
    std::optional<std::string> categorie(const Application& application) const override;

private:
    std::shared_ptr<const IndexEntrees> index_;
};

} // namespace tavi
