#include "ui/menu_qt.h"

#include <QAction>
#include <QStringList>

namespace tavi {

namespace {

// Titles come from the server (a rule's title, a message): a tab would start a shortcut's
// column, a line break would make a tall item.
QString enLigne(const std::string& titre) {
    QString t = QString::fromStdString(titre);
    for (const QChar blanc : {QLatin1Char('\t'), QLatin1Char('\n'), QLatin1Char('\r')})
        t.replace(blanc, QLatin1Char(' '));
    return t;
}

// And "&" would mark a shortcut key.
QString sansRaccourci(QString t) {
    return t.replace(QLatin1Char('&'), QStringLiteral("&&"));
}

// A menu cannot wrap an item, and Qt cuts one wider than a part of the screen: a long text (a
// message, a rule's title) is shown on as many disabled lines as it takes.
QStringList lignes(const QString& texte) {
    constexpr qsizetype largeur = 48;
    QStringList resultat;
    QString ligne;
    for (const QString& mot : texte.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (!ligne.isEmpty() && ligne.size() + 1 + mot.size() > largeur) {
            resultat << ligne;
            ligne.clear();
        }
        if (!ligne.isEmpty()) ligne += QLatin1Char(' ');
        ligne += mot;
        while (ligne.size() > largeur) {
            resultat << ligne.left(largeur);
            ligne.remove(0, largeur);
        }
    }
    if (!ligne.isEmpty() || resultat.isEmpty()) resultat << ligne;
    return resultat;
}

void ajouter(QMenu& menu, const std::vector<EntreeMenu>& entrees,
             const std::function<void(const EntreeMenu&)>& choisir) {
    for (const EntreeMenu& entree : entrees) {
        if (entree.separateur()) {
            menu.addSeparator();
            continue;
        }
        if (!entree.sousMenu.empty()) {
            QMenu* sous = menu.addMenu(sansRaccourci(enLigne(entree.titre)));
            sous->setEnabled(entree.actif);
            ajouter(*sous, entree.sousMenu, choisir);
            continue;
        }
        if (!entree.actif || entree.action == EntreeMenu::Action::aucune) {
            for (const QString& ligne : lignes(enLigne(entree.titre)))
                menu.addAction(sansRaccourci(ligne))->setEnabled(entree.actif);
            continue;
        }
        QAction* action = menu.addAction(sansRaccourci(enLigne(entree.titre)));
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
