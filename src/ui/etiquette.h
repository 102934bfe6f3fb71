#pragma once

#include <QColor>
#include <QFont>
#include <QLabel>
#include <QString>
#include <string>

class QHBoxLayout;
class QWidget;

namespace tavi {

// A text as the child's windows draw it: no break between a number and its unit, and a chance
// to break inside a long run with no space (a name from the server may be one word of a
// hundred letters), which would otherwise push a card past the screen's edge.
QString texteEcran(const std::string& texte);

// How far the ink of `texte` in `police` rises above the font's ascent, in whole pixels: the
// accents of capitals ("À", "É") do in rounded faces, and a label that keeps only the ascent
// clips them or draws them over its frame.
int depassementHaut(const QFont& police, const QString& texte);

// A plain-text label that wraps, in `police` and `couleur`, with room above for tall accents.
QLabel* etiquette(const std::string& texte, const QFont& police, const QColor& couleur,
                  Qt::Alignment alignement = Qt::AlignHCenter);

// A short text on a white capsule outlined in ink (the rule's title on the veil); its padding
// grows above the text by what its accents rise past the font's ascent.
class Pastille : public QLabel {
public:
    explicit Pastille(const std::string& texte);

protected:
    void paintEvent(QPaintEvent* evenement) override;
};

// `widget` centred in a row of its own.
QHBoxLayout* centree(QWidget* widget);

} // namespace tavi
