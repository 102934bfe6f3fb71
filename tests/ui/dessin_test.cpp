// What the veil's pieces look like once drawn, read back pixel by pixel (offscreen).
#include "ui/contenu_voile.h"
#include "ui/etiquette.h"
#include "ui/police.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

namespace tavi {
namespace {

bool encre(QRgb p) {
    return qGray(p) < 140;
}

// Per column of the text, the light pixels between the capsule's outline and the first ink
// below it; the smallest of them.
int plusPetitEcart(const QImage& image, const QRect& texte) {
    int plusPetit = image.height();
    for (int x = texte.left(); x <= texte.right(); ++x) {
        int y = 0;
        while (y < image.height() / 2 && !encre(image.pixel(x, y)))
            ++y;
        while (y < image.height() / 2 && encre(image.pixel(x, y)))
            ++y;
        int ecart = 0;
        while (y < image.height() / 2 && !encre(image.pixel(x, y)))
            ++y, ++ecart;
        if (y < image.height() / 2) plusPetit = std::min(plusPetit, ecart);
    }
    return plusPetit;
}

TEST(Dessin, LesAccentsDesCapitalesRestentDansLaPastille) {
    for (const char* titre : {"À table", "École", "Écran éteint", "ÂÊÎÔÛ"}) {
        Pastille pastille(titre);
        pastille.resize(pastille.sizeHint());
        const QImage image = pastille.grab().toImage();
        const QRect texte = pastille.contentsRect().adjusted(4, 0, -4, 0);
        EXPECT_GE(plusPetitEcart(image, texte), 2) << titre;
    }
}

// The share of a glyph's ink that is nearly black: the silhouettes of a glyph drawn as a grey
// tile, where a colour emoji face has none.
double partNoire(const std::string& emoji, const QFont& police) {
    QImage image(140, 140, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter peintre(&image);
    peintre.setFont(police);
    peintre.drawText(image.rect(), Qt::AlignCenter, QString::fromStdString(emoji));
    peintre.end();
    int traces = 0, noires = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c == Qt::white) continue;
            ++traces;
            if (c.value() < 50) ++noires;
        }
    return traces ? double(noires) / traces : 1;
}

TEST(Dessin, AucunEmojiDuVoileNestUneTuileGrise) {
    const auto police = policeEmoji(92);
    if (!police) GTEST_SKIP() << "no colour emoji face installed (fonts-noto-color-emoji)";
    for (const auto& [cause, titre] :
         std::initializer_list<std::pair<const char*, const char*>>{{"limite", ""},
                                                                    {"coupee", ""},
                                                                    {"site", ""},
                                                                    {"navigateur", ""},
                                                                    {"automatisation", ""},
                                                                    {"pause_famille", ""},
                                                                    {"panier", ""},
                                                                    {"horaire", "Au lit"},
                                                                    {"horaire", "À table"},
                                                                    {"horaire", "Devoirs"}}) {
        RegleMac regle;
        regle.cause = cause;
        regle.titre = titre;
        EXPECT_LT(partNoire(emojiVoile(regle), *police), 0.05) << cause << " " << titre;
    }
}

} // namespace
} // namespace tavi
