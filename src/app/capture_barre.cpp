#include "app/capture_barre.h"

#include "app/capture_image.h"
#include "ui/icone_barre.h"
#include "ui/lisible.h"
#include "ui/menu_qt.h"

#include <QAction>
#include <QApplication>
#include <QImage>
#include <QPainter>
#include <iostream>
#include <string>
#include <vector>

namespace tavi {

namespace {

struct EtatMenu {
    std::string nom;
    EtatBarre etat;
    std::string ouvert; // the start of the title whose submenu is drawn open beside
};

std::vector<EtatMenu> etatsMenu() {
    EtatBarre relie;
    relie.relie = true;
    relie.prenom = "Léa";
    relie.version = "1.0.0";
    relie.resteSecondes = 45 * 60 - 20;
    const auto avec = [&relie](auto changer) {
        EtatBarre e = relie;
        changer(e);
        return e;
    };
    RegleMac auLit;
    auLit.bloquerTout = true;
    auLit.cause = "horaire";
    auLit.titre = "Au lit";
    return {
        {"non-relie", EtatBarre{}, ""},
        {"limite", relie, "🙋"},
        {"dodo", avec([&](EtatBarre& e) { e.regle = auLit; }), ""},
        {"tirelire", avec([](EtatBarre& e) { e.tirelireMin = 12.4; }), "⭐"},
        {"message", avec([](EtatBarre& e) {
             e.message = "Tes parents n'ont pas pu être joints : réessaie dans un moment, ou va "
                         "leur demander directement.";
         }),
         ""},
        {"agent-inactif", avec([](EtatBarre& e) { e.agentActif = false; }), ""},
        {"sans-limite", avec([](EtatBarre& e) { e.resteSecondes.reset(); }), ""},
    };
}

// `menu` as it looks on screen, shown off it.
QImage image(QMenu& menu, qreal densite) {
    menu.setAttribute(Qt::WA_DontShowOnScreen);
    menu.adjustSize();
    menu.show();
    QCoreApplication::processEvents();
    QImage resultat((QSizeF(menu.size()) * densite).toSize(), QImage::Format_ARGB32_Premultiplied);
    resultat.setDevicePixelRatio(densite);
    resultat.fill(Qt::transparent);
    menu.render(&resultat);
    return resultat;
}

// The menu of `etat`, with the submenu named by `ouvert` beside its entry as when it opens.
QImage imageMenu(const EtatMenu& etat, qreal densite) {
    QMenu menu;
    remplirMenu(menu, menuBarre(etat.etat), [](const EntreeMenu&) {});
    QAction* entree = nullptr;
    for (QAction* action : menu.actions())
        if (!etat.ouvert.empty() && action->menu() &&
            action->text().startsWith(QString::fromStdString(etat.ouvert)))
            entree = action;
    QImage principal = image(menu, densite);
    if (!entree) return principal;

    menu.setActiveAction(entree);
    principal = image(menu, densite);
    const QRect ligne = menu.actionGeometry(entree);
    const QImage sous = image(*entree->menu(), densite);
    const QSize taille(
        menu.width() + sous.deviceIndependentSize().toSize().width(),
        std::max(menu.height(), ligne.top() + int(sous.deviceIndependentSize().height())));
    QImage planche((QSizeF(taille) * densite).toSize(), QImage::Format_ARGB32_Premultiplied);
    planche.setDevicePixelRatio(densite);
    planche.fill(Qt::transparent);
    QPainter peintre(&planche);
    peintre.drawImage(QPointF(0, 0), principal);
    peintre.drawImage(QPointF(menu.width(), ligne.top()), sous);
    return planche;
}

struct Ligne {
    const char* nom;
    IconeBarre icone;
};

std::vector<Ligne> lignesIcones() {
    using S = IconeBarre::Symbole;
    return {
        {"non relié", {S::relier, ""}},
        {"dodo", {S::dodo, "Au lit"}},
        {"sans limite", {S::etincelles, ""}},
        {"40 s", {S::sablier, dureeLisible(40)}},
        {"7 min", {S::sablier, dureeLisible(7 * 60)}},
        {"45 min", {S::sablier, dureeLisible(45 * 60)}},
        {"1 h 39", {S::sablier, dureeLisible(99 * 60)}},
        {"1 h 40", {S::sablier, dureeLisible(100 * 60)}},
        {"1 h 59", {S::sablier, dureeLisible(119 * 60)}},
        {"2 h", {S::sablier, dureeLisible(2 * 3600)}},
        {"12 h 05", {S::sablier, dureeLisible(12 * 3600 + 5 * 60)}},
    };
}

// Every icon at 16, 22 and 24 px on a light panel, then on a dark one, `loupe` times larger
// with hard pixels when `loupe` is above 1.
QImage plancheIcones(qreal densite, int loupe) {
    const int tailles[] = {16, 22, 24};
    const QColor panneaux[] = {QColor(240, 240, 240), QColor(43, 43, 48)};
    const auto lignes = lignesIcones();
    constexpr int marge = 8, legende = 80, colonne = 36, hauteur = 32, entete = 20;
    const QSize taille(marge + legende + 2 * 3 * colonne + marge,
                       entete + hauteur * int(lignes.size()) + marge);
    QImage planche((QSizeF(taille) * densite).toSize(), QImage::Format_ARGB32_Premultiplied);
    planche.setDevicePixelRatio(densite);
    planche.fill(Qt::white);
    QPainter peintre(&planche);
    for (int p = 0; p < 2; ++p) {
        const QRectF fond(marge + legende + p * 3 * colonne, 0, 3 * colonne, taille.height());
        peintre.fillRect(fond, panneaux[p]);
        peintre.setPen(p == 0 ? Qt::black : Qt::white);
        for (int t = 0; t < 3; ++t)
            peintre.drawText(QRectF(fond.left() + t * colonne, 2, colonne, entete - 2),
                             Qt::AlignCenter, QString::number(tailles[t]));
    }
    for (std::size_t i = 0; i < lignes.size(); ++i) {
        const int y = entete + hauteur * int(i);
        peintre.setPen(Qt::black);
        peintre.drawText(QRectF(marge, y, legende, hauteur), Qt::AlignVCenter,
                         QString::fromUtf8(lignes[i].nom));
        for (int p = 0; p < 2; ++p)
            for (int t = 0; t < 3; ++t) {
                const int px = tailles[t];
                const qreal x = marge + legende + (p * 3 + t) * colonne + (colonne - px) / 2.0;
                peintre.drawImage(QPointF(x, y + (hauteur - px) / 2.0),
                                  dessinerIconeBarre(lignes[i].icone, px, densite));
            }
    }
    peintre.end();
    if (loupe <= 1) return planche;
    QImage grande =
        planche.scaled(planche.size() * loupe, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    grande.setDevicePixelRatio(1);
    return grande;
}

} // namespace

bool capturerBarre(const std::filesystem::path& dossier) {
    bool tout = true;
    for (const EtatMenu& etat : etatsMenu()) {
        tout &= ecrireImage(imageMenu(etat, 1), dossier / ("barre-menu-" + etat.nom + ".png"));
        tout &= ecrireImage(imageMenu(etat, 2), dossier / ("barre-menu-" + etat.nom + "@2x.png"));
    }
    tout &= ecrireImage(plancheIcones(1, 1), dossier / "barre-icones.png");
    tout &= ecrireImage(plancheIcones(2, 1), dossier / "barre-icones@2x.png");
    tout &= ecrireImage(plancheIcones(1, 4), dossier / "barre-icones-loupe.png");
    return tout;
}

} // namespace tavi
