#pragma once

#include "platform/application.h"

#include <optional>
#include <string>

namespace tavi {

// Reads the category an application declares, in the "public.app-category.*" form (the Linux
// backend derives it from the desktop entry's Categories). Absent when the application has no
// readable description or declares none.
//
// Main thread, on every tick the rule applies: an implementation answers from memory and
// reads the system's descriptions elsewhere.
class CategoriesApplis {
public:
    virtual ~CategoriesApplis() = default;
    virtual std::optional<std::string> categorie(const Application& application) const = 0;
};

} // namespace tavi
