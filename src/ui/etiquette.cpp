#include "ui/etiquette.h"

#include "ui/lisible.h"

#include <QHBoxLayout>
#include <QLabel>

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

QLabel* etiquette(const std::string& texte, const QFont& police, const QColor& couleur,
                  Qt::Alignment alignement) {
    auto* label = new QLabel(texteEcran(texte));
    label->setFont(police);
    label->setWordWrap(true);
    label->setAlignment(alignement);
    label->setTextFormat(Qt::PlainText);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, couleur);
    label->setPalette(palette);
    return label;
}

QHBoxLayout* centree(QWidget* widget) {
    auto* rangee = new QHBoxLayout;
    rangee->addStretch();
    rangee->addWidget(widget);
    rangee->addStretch();
    return rangee;
}

} // namespace tavi
