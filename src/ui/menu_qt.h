#pragma once

#include "ui/menu_barre.h"

#include <QMenu>
#include <functional>
#include <vector>

namespace tavi {

// Empties `menu`, submenus included, then fills it with `entrees`: disabled texts, separators,
// submenus and actions. Choosing an action calls `choisir` with its entry. Titles are shown as
// they are: an "&" stays an ampersand rather than marking a shortcut key.
void remplirMenu(QMenu& menu, const std::vector<EntreeMenu>& entrees,
                 const std::function<void(const EntreeMenu&)>& choisir);

} // namespace tavi
