#include "ui/etiquette.h"

#include "ui/charte.h"
#include "ui/lisible.h"
#include "ui/police.h"

#include <QFontMetricsF>
#include <QHBoxLayout>
#include <QPainter>
#include <cmath>

namespace tavi {

QString texteEcran(const std::string& texte) {
    constexpr int longueurSansEspace = 24;
    const QString brut = QString::fromStdString(sansCoupure(texte));
    QString resultat;
    int suite = 0;
    for (const QChar c : brut) {
        resultat += c;
        if (c.isSpace())
            suite = 0;
        else if (!c.isHighSurrogate() && ++suite >= longueurSansEspace) {
            resultat += QChar(0x200B);
            suite = 0;
        }
    }
    return resultat;
}

int depassementHaut(const QFont& police, const QString& texte) {
    const QFontMetricsF mesure(police);
    // The ink of every line, measured as one: a wrapped line's accents are no taller.
    const qreal haut = -mesure.tightBoundingRect(QString(texte).replace(u'\n', u' ')).top();
    return std::max(0, static_cast<int>(std::ceil(haut - mesure.ascent())));
}

QLabel* etiquette(const std::string& texte, const QFont& police, const QColor& couleur,
                  Qt::Alignment alignement) {
    auto* label = new QLabel(texteEcran(texte));
    label->setFont(police);
    label->setContentsMargins(0, depassementHaut(police, label->text()), 0, 0);
    label->setWordWrap(true);
    label->setAlignment(alignement);
    label->setTextFormat(Qt::PlainText);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, couleur);
    label->setPalette(palette);
    return label;
}

Pastille::Pastille(const std::string& texte) : QLabel(texteEcran(texte)) {
    const QFont police = policeArrondie(18, QFont::ExtraBold);
    setFont(police);
    setTextFormat(Qt::PlainText);
    setAlignment(Qt::AlignCenter);
    setContentsMargins(14, 6 + depassementHaut(police, text()), 14, 6);
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    QPalette palette = this->palette();
    palette.setColor(QPalette::WindowText, Charte::encre);
    setPalette(palette);
}

void Pastille::paintEvent(QPaintEvent* evenement) {
    QPainter peintre(this);
    peintre.setRenderHint(QPainter::Antialiasing);
    const QRectF capsule = QRectF(rect()).adjusted(1, 1, -1, -1);
    peintre.setBrush(Charte::blanc);
    peintre.setPen(QPen(Charte::encre, 2));
    peintre.drawRoundedRect(capsule, capsule.height() / 2, capsule.height() / 2);
    peintre.end();
    QLabel::paintEvent(evenement);
}

QHBoxLayout* centree(QWidget* widget) {
    auto* rangee = new QHBoxLayout;
    rangee->addStretch();
    rangee->addWidget(widget);
    rangee->addStretch();
    return rangee;
}

} // namespace tavi
