#pragma once

#include <QSize>
#include <filesystem>

class QImage;
class QWidget;

namespace tavi {

// Writes `image` to a PNG file and names the file on the standard output (or says on the
// error output that it could not be written).
bool ecrireImage(const QImage& image, const std::filesystem::path& fichier);

// Draws `widget`, resized to `pixels` at `densite`, into a PNG file, offscreen.
bool enregistrerImage(QWidget& widget, QSize pixels, qreal densite,
                      const std::filesystem::path& fichier);

} // namespace tavi
