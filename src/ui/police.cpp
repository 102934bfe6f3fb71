#include "ui/police.h"

#include <QFontDatabase>
#include <QFontMetrics>
#include <QStringList>

namespace tavi {

namespace {

const QStringList& famillesArrondies() {
    static const QStringList familles = [] {
        QStringList presentes;
        const QStringList installees = QFontDatabase::families();
        for (const char* famille : {"Nunito", "M PLUS Rounded 1c", "Comfortaa", "Quicksand"})
            if (installees.contains(QString::fromUtf8(famille))) presentes << famille;
        return presentes;
    }();
    return familles;
}

} // namespace

QFont policeArrondie(int pixels, QFont::Weight poids) {
    QFont police = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    if (!famillesArrondies().isEmpty()) police.setFamilies(famillesArrondies());
    police.setPixelSize(pixels);
    police.setWeight(poids);
    return police;
}

std::optional<QFont> policeEmoji(int pixels) {
    static const std::optional<QString> famille = []() -> std::optional<QString> {
        const QStringList installees = QFontDatabase::families();
        for (const char* nom : {"Noto Color Emoji", "Twemoji", "JoyPixels", "Apple Color Emoji"}) {
            const QString f = QString::fromUtf8(nom);
            // Present and really drawing the sleeping face, not a stand-in with empty boxes.
            if (installees.contains(f) && QFontMetrics(QFont(f)).inFontUcs4(0x1F634)) return f;
        }
        return std::nullopt;
    }();
    if (!famille) return std::nullopt;
    QFont police(*famille);
    police.setPixelSize(pixels);
    return police;
}

} // namespace tavi
