#pragma once

#include <QSize>
#include <filesystem>

class QWidget;

namespace tavi {

// Draws `widget`, resized to `pixels` at `densite`, into a PNG file, offscreen, and names the
// file on the standard output (or says on the error output that it could not be written).
bool enregistrerImage(QWidget& widget, QSize pixels, qreal densite,
                      const std::filesystem::path& fichier);

} // namespace tavi
