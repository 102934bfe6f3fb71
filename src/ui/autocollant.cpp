#include "ui/autocollant.h"

#include "ui/charte.h"

#include <QPainter>
#include <QVBoxLayout>

namespace tavi {

namespace {
constexpr int marge = 28;
constexpr int ombre = 6;
constexpr qreal rayon = 26;
constexpr qreal trait = 3;
} // namespace

Autocollant::Autocollant(const QColor& fond, QWidget* parent)
    : QWidget(parent), fond_(fond), contenu_(new QVBoxLayout(this)) {
    // The shadow is drawn inside the widget: its room is kept on the right and below.
    contenu_->setContentsMargins(marge, marge, marge + ombre, marge + ombre);
}

void Autocollant::paintEvent(QPaintEvent*) {
    QPainter peintre(this);
    peintre.setRenderHint(QPainter::Antialiasing);
    const QRectF carte =
        QRectF(rect()).adjusted(trait / 2, trait / 2, -ombre - trait / 2, -ombre - trait / 2);
    peintre.setPen(Qt::NoPen);
    peintre.setBrush(Charte::encre);
    peintre.drawRoundedRect(carte.translated(ombre, ombre), rayon, rayon);
    peintre.setBrush(fond_);
    peintre.setPen(QPen(Charte::encre, trait));
    peintre.drawRoundedRect(carte, rayon, rayon);
}

} // namespace tavi
