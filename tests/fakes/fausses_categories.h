#pragma once

#include "platform/categories_applis.h"

#include <map>
#include <string>

namespace tavi::test {

// Categories declared by applications, by identifier; an unknown application declares none.
class FaussesCategories : public CategoriesApplis {
public:
    std::map<std::string, std::string> parIdentifiant;

    std::optional<std::string> categorie(const Application& application) const override {
        if (!application.identifiant) return std::nullopt;
        auto it = parIdentifiant.find(*application.identifiant);
        if (it == parIdentifiant.end()) return std::nullopt;
        return it->second;
    }
};

} // namespace tavi::test
