#pragma once

#include <QFont>
#include <optional>

namespace tavi {

// The rounded face of the child's texts, `pixels` high and of weight `poids`. Comfortaa
// (Debian's fonts-comfortaa, which the package recommends) or another rounded family where one
// is installed; otherwise the desktop's own sans-serif face in the same size and weight.
QFont policeArrondie(int pixels, QFont::Weight poids);

// A face that draws colour emoji, or absent when none is installed: an emoji is then left out
// rather than drawn as an empty box.
std::optional<QFont> policeEmoji(int pixels);

} // namespace tavi
