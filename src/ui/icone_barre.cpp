#include "ui/icone_barre.h"

#include "commun/texte.h"
#include "ui/charte.h"
#include "ui/police.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStringList>
#include <QTransform>
#include <algorithm>
#include <cctype>
#include <vector>

namespace tavi {

namespace {

using Symbole = IconeBarre::Symbole;

// Everything is drawn on a grid of 24 units, scaled to the size asked for.
constexpr qreal grille = 24;
// The outline: one pixel at 16 px, where a thinner line would fade into the panel.
constexpr qreal trait = 1.5;

QColor fondDuBadge(Symbole symbole) {
    switch (symbole) {
    case Symbole::relier:
        return Charte::jaune;
    case Symbole::dodo:
        return Charte::lilas;
    case Symbole::sablier:
        return Charte::menthe;
    case Symbole::etincelles:
        return Charte::citron;
    }
    return Charte::blanc;
}

// Two links side by side under a plus. Drawn level rather than leaning: on the 16 px grid
// (1.5 units a pixel) their 1 px lines then fall on whole pixels and their holes stay open.
QPainterPath chaine() {
    QPainterPath maillons;
    maillons.addRoundedRect(QRectF(3.75, 12.75, 9.75, 7.5), 3.75, 3.75);
    maillons.addRoundedRect(QRectF(11.25, 12.75, 9.75, 7.5), 3.75, 3.75);
    return maillons;
}

QPainterPath lune() {
    QPainterPath disque, ombre;
    disque.addEllipse(QPointF(11.5, 12.5), 7.5, 7.5);
    ombre.addEllipse(QPointF(15.5, 9), 6.5, 6.5);
    return disque.subtracted(ombre);
}

// A four-pointed star with hollow sides, `r` from its centre to each point.
QPainterPath etoile(QPointF c, qreal r) {
    const qreal creux = r * 0.18;
    QPainterPath p(QPointF(c.x(), c.y() - r));
    p.quadTo(QPointF(c.x() + creux, c.y() - creux), QPointF(c.x() + r, c.y()));
    p.quadTo(QPointF(c.x() + creux, c.y() + creux), QPointF(c.x(), c.y() + r));
    p.quadTo(QPointF(c.x() - creux, c.y() + creux), QPointF(c.x() - r, c.y()));
    p.quadTo(QPointF(c.x() - creux, c.y() - creux), QPointF(c.x(), c.y() - r));
    p.closeSubpath();
    return p;
}

QPainterPath sablier() {
    QPainterPath p;
    p.moveTo(7, 5);
    p.lineTo(17, 5);
    p.lineTo(12, 12);
    p.lineTo(17, 19);
    p.lineTo(7, 19);
    p.lineTo(12, 12);
    p.closeSubpath();
    return p;
}

// `texte` as an outline, one or two lines, as high as digits may be in the badge and narrowed
// to fit it. Two lines share the height, with a gap, so that each stays as wide as it can.
QPainterPath chiffres(const std::string& texte) {
    const QFont police = policeArrondie(100, QFont::Black);
    const QStringList lignes = QString::fromStdString(texte).split(QLatin1Char('\n'));
    QPainterPath p;
    qreal y = 0;
    for (const QString& ligne : lignes) {
        QPainterPath unique;
        unique.addText(0, 0, police, ligne);
        const QRectF boite = unique.boundingRect();
        // Each line centred on the same axis, one below the other.
        p.addPath(unique.translated(-boite.center().x(), y - boite.top()));
        y += boite.height() + 22;
    }
    const QRectF boite = p.boundingRect();
    if (boite.isEmpty()) return p;
    const bool deux = lignes.size() > 1;
    const qreal echelle =
        std::min((deux ? 19.0 : 12.5) / boite.height(), (deux ? 19.5 : 18.0) / boite.width());
    QTransform t;
    t.translate(12, 12);
    t.scale(echelle, echelle);
    t.translate(-boite.center().x(), -boite.center().y());
    return t.map(p);
}

} // namespace

std::string texteBadge(const std::string& duree) {
    std::vector<long long> nombres;
    for (std::size_t i = 0; i < duree.size();) {
        if (!std::isdigit(static_cast<unsigned char>(duree[i]))) {
            ++i;
            continue;
        }
        std::size_t fin = i;
        while (fin < duree.size() && std::isdigit(static_cast<unsigned char>(duree[fin])))
            ++fin;
        if (fin - i > 9) return {};
        nombres.push_back(std::stoll(duree.substr(i, fin - i)));
        i = fin;
    }
    if (nombres.empty() || nombres.size() > 2) return {};
    const std::string premier = std::to_string(nombres[0]);
    if (nombres.size() == 1 && duree == texteAvec("%d s", premier))
        return nombres[0] == 0 ? "0" : "1";
    if (nombres.size() == 1 && duree == texteAvec("%d min", premier)) return premier;
    const long long minutes = nombres[0] * 60 + (nombres.size() == 2 ? nombres[1] : 0);
    if (minutes <= 99) return std::to_string(minutes);
    if (nombres.size() == 1) return premier + "h";
    // Both lines keep two digits' width: "59" under "1h", "05" under "2h".
    const std::string reste = std::to_string(nombres[1]);
    return premier + "h\n" + (reste.size() < 2 ? "0" : "") + reste;
}

QImage dessinerIconeBarre(const IconeBarre& icone, int px, qreal densite) {
    const int cote = std::max(1, qRound(px * densite));
    QImage image(cote, cote, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(densite);
    image.fill(Qt::transparent);

    QPainter peintre(&image);
    peintre.setRenderHint(QPainter::Antialiasing);
    peintre.scale(px / grille, px / grille);

    // Inset by half the outline, so that at 16 px the outline falls on whole pixels.
    const QRectF badge(trait / 2, trait / 2, grille - trait, grille - trait);
    peintre.setPen(QPen(Charte::encre, trait));
    peintre.setBrush(fondDuBadge(icone.symbole));
    peintre.drawRoundedRect(badge, 6, 6);

    peintre.setPen(Qt::NoPen);
    peintre.setBrush(Charte::encre);
    switch (icone.symbole) {
    case Symbole::relier: {
        peintre.setBrush(Qt::NoBrush);
        peintre.setPen(QPen(Charte::encre, trait));
        peintre.drawPath(chaine());
        peintre.setPen(QPen(Charte::encre, 3, Qt::SolidLine, Qt::FlatCap));
        peintre.drawLine(QPointF(18, 3.75), QPointF(18, 11.25));
        peintre.drawLine(QPointF(14.25, 7.5), QPointF(21.75, 7.5));
        break;
    }
    case Symbole::dodo:
        peintre.drawPath(lune());
        break;
    case Symbole::etincelles:
        peintre.drawPath(etoile(QPointF(10.5, 13.5), 7.5));
        peintre.drawPath(etoile(QPointF(17.5, 6.5), 3.5));
        break;
    case Symbole::sablier: {
        const std::string court = texteBadge(icone.texte);
        // Outlined as well as filled: the kit's rounded face is too thin for 16 px. Less on two
        // lines, whose smaller digits would close up.
        const qreal contour = court.find('\n') == std::string::npos ? 1.2 : 0.7;
        peintre.setPen(QPen(Charte::encre, contour, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        peintre.drawPath(court.empty() ? sablier() : chiffres(court));
        break;
    }
    }
    return image;
}

QIcon iconeQt(const IconeBarre& icone) {
    QIcon resultat;
    for (int px : {16, 22, 24, 32, 48})
        resultat.addPixmap(QPixmap::fromImage(dessinerIconeBarre(icone, px, 1)));
    return resultat;
}

} // namespace tavi
