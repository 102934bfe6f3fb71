#include "ui/bouton_pilule.h"

#include "ui/charte.h"
#include "ui/police.h"

#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>

namespace tavi {

namespace {
constexpr int margeLargeur = 22;
constexpr int margeHauteur = 12;
constexpr qreal trait = 2.5;
constexpr qreal opaciteDesactive = 0.45;
} // namespace

BoutonPilule::BoutonPilule(const QString& titre, const QColor& fond, QWidget* parent)
    : QAbstractButton(parent), fond_(fond) {
    setText(titre);
    setFont(policeArrondie(17, QFont::ExtraBold));
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize BoutonPilule::sizeHint() const {
    const QFontMetrics mesure(font());
    return {mesure.horizontalAdvance(text()) + 2 * margeLargeur + 2,
            mesure.height() + 2 * margeHauteur};
}

void BoutonPilule::paintEvent(QPaintEvent*) {
    QPainter peintre(this);
    peintre.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled()) peintre.setOpacity(opaciteDesactive);

    const QRectF capsule = QRectF(rect()).adjusted(trait / 2, trait / 2, -trait / 2, -trait / 2);
    const qreal rayon = capsule.height() / 2;
    peintre.setBrush(isDown() ? fond_.darker(110) : fond_);
    peintre.setPen(QPen(Charte::encre, trait));
    peintre.drawRoundedRect(capsule, rayon, rayon);
    if (hasFocus()) {
        // The keyboard's place: a second ring inside the outline.
        peintre.setBrush(Qt::NoBrush);
        peintre.setPen(QPen(Charte::encre, 1.5, Qt::DotLine));
        const QRectF anneau = capsule.adjusted(4, 4, -4, -4);
        peintre.drawRoundedRect(anneau, anneau.height() / 2, anneau.height() / 2);
    }
    peintre.setPen(Charte::encre);
    peintre.setFont(font());
    peintre.drawText(rect(), Qt::AlignCenter, text());
}

void BoutonPilule::keyPressEvent(QKeyEvent* evenement) {
    if (evenement->key() == Qt::Key_Return || evenement->key() == Qt::Key_Enter) {
        if (isEnabled()) click();
        return;
    }
    QAbstractButton::keyPressEvent(evenement);
}

} // namespace tavi
