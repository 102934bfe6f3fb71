#include "app/capture_image.h"

#include <QCoreApplication>
#include <QImage>
#include <QWidget>
#include <iostream>

namespace tavi {

bool ecrireImage(const QImage& image, const std::filesystem::path& fichier) {
    const bool ok = image.save(QString::fromStdString(fichier.string()), "PNG");
    if (!ok)
        std::cerr << "tavi-home: impossible d'écrire « " << fichier.string() << " »\n";
    else
        std::cout << fichier.string() << '\n';
    return ok;
}

bool enregistrerImage(QWidget& widget, QSize pixels, qreal densite,
                      const std::filesystem::path& fichier) {
    widget.setAttribute(Qt::WA_DontShowOnScreen);
    widget.resize((QSizeF(pixels) / densite).toSize());
    widget.show();
    QCoreApplication::processEvents();
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(densite);
    image.fill(Qt::transparent);
    widget.render(&image);
    return ecrireImage(image, fichier);
}

} // namespace tavi
