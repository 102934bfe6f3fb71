#pragma once

#include <QColor>

namespace tavi::Charte {

// The palette every child-facing surface shares, opaque sRGB.
inline const QColor encre{30, 18, 64};     // text, outlines, the sticker's shadow
inline const QColor doux{107, 95, 142};    // soft text: the wake line, the footer
inline const QColor fond{250, 249, 252};   // the veil's background
inline const QColor lilas{236, 227, 255};  // lilac surface
inline const QColor menthe{216, 251, 232}; // mint buttons (settings, piggy bank)
inline const QColor citron{255, 245, 189}; // the lemon background of messages
inline const QColor jaune{255, 212, 0};    // the main call to action
inline const QColor rouge{240, 56, 79};    // red accent; too light for a text (3.2:1 on lilac)
// The red of a text, an error under the pairing code: 5:1 on the lilac card, 4.5:1 being the
// least a small text needs to be read.
inline const QColor rougeTexte{190, 18, 50};
inline const QColor blanc{255, 255, 255};

} // namespace tavi::Charte
