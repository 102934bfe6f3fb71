#pragma once

#include <QColor>
#include <QFont>
#include <QString>
#include <string>

class QHBoxLayout;
class QLabel;
class QWidget;

namespace tavi {

// A text as the child's windows draw it: no break between a number and its unit, and a chance
// to break inside a long run with no space (a name from the server may be one word of a
// hundred letters), which would otherwise push a card past the screen's edge.
QString texteEcran(const std::string& texte);

// A plain-text label that wraps, in `police` and `couleur`.
QLabel* etiquette(const std::string& texte, const QFont& police, const QColor& couleur,
                  Qt::Alignment alignement = Qt::AlignHCenter);

// `widget` centred in a row of its own.
QHBoxLayout* centree(QWidget* widget);

} // namespace tavi
