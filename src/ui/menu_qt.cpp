#include "ui/menu_qt.h"

#include <QAction>

namespace tavi {

namespace {

// Titles come from the server (a rule's title, a message): "&" would mark a shortcut key and a
// tab would start a shortcut's column, a line break would make a tall item.
QString titreDeMenu(const std::string& titre) {
    QString t = QString::fromStdString(titre);
    t.replace(QLatin1Char('&'), QStringLiteral("&&"));
    for (const QChar blanc : {QLatin1Char('\t'), QLatin1Char('\n'), QLatin1Char('\r')})
        t.replace(blanc, QLatin1Char(' '));
    return t;
}

void ajouter(QMenu& menu, const std::vector<EntreeMenu>& entrees,
             const std::function<void(const EntreeMenu&)>& choisir) {
    for (const EntreeMenu& entree : entrees) {
        if (entree.separateur()) {
            menu.addSeparator();
            continue;
        }
        if (!entree.sousMenu.empty()) {
            QMenu* sous = menu.addMenu(titreDeMenu(entree.titre));
            sous->setEnabled(entree.actif);
            ajouter(*sous, entree.sousMenu, choisir);
            continue;
        }
        QAction* action = menu.addAction(titreDeMenu(entree.titre));
        action->setEnabled(entree.actif);
        if (entree.actif && entree.action != EntreeMenu::Action::aucune)
            QObject::connect(action, &QAction::triggered, &menu,
                             [choisir, entree] { choisir(entree); });
    }
}

} // namespace

void remplirMenu(QMenu& menu, const std::vector<EntreeMenu>& entrees,
                 const std::function<void(const EntreeMenu&)>& choisir) {
    menu.clear();
    // `clear` leaves the submenus made by `addMenu`, which are the menu's children.
    for (QMenu* sous : menu.findChildren<QMenu*>(Qt::FindDirectChildrenOnly))
        sous->deleteLater();
    ajouter(menu, entrees, choisir);
}

} // namespace tavi
