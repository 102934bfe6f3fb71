#pragma once

#include "ui/menu_barre.h"

#include <QIcon>
#include <QImage>
#include <string>

namespace tavi {

// No text sits beside a tray icon on Linux, so the icon carries the state by itself: a small
// rounded badge outlined in ink (it reads on light and dark panels alike), coloured by state,
// holding the state's symbol, or for the hourglass the time left in short.

// What the hourglass badge says of a time left written by `dureeLisible`: whole minutes up to
// 99 ("45"; under a minute reads "1", rounded up like the rest), then the hours over the
// minutes on two lines ("1h\n59" for 1 h 59, "2h" for 2 h), so that the badge always says what
// the menu says. Empty for any other text.
std::string texteBadge(const std::string& dureeLisible);

// The badge `px` pixels square, drawn for a screen of density `densite`.
QImage dessinerIconeBarre(const IconeBarre& icone, int px, qreal densite);

// The badge at the sizes panels ask for: 16, 22, 24, 32 and 48 pixels.
QIcon iconeQt(const IconeBarre& icone);

} // namespace tavi
