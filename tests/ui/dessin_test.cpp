// The veil's pieces drawn offscreen and read back pixel by pixel.
#include "ui/contenu_voile.h"
#include "ui/etiquette.h"
#include "ui/police.h"

#include <QPainter>
#include <gtest/gtest.h>

namespace tavi {

TEST(Dessin, LesAccentsDesCapitalesNeTouchentPasLeTourDeLaPastille) {
    for (const char* titre : {"À table", "École", "ÂÊÎÔÛ"}) {
        Pastille pastille(titre);
        pastille.resize(pastille.sizeHint());
        const QImage image = pastille.grab().toImage();
        const int bas = image.height() / 2;
        const auto encre = [&](int x, int y) { return qGray(image.pixel(x, y)) < 140; };
        // Down each column of the text: the outline, light pixels, then the first ink if any.
        for (int x = pastille.contentsRect().left() + 4; x < pastille.contentsRect().right() - 4;
             ++x) {
            int y = 0, ecart = 0;
            while (y < bas && !encre(x, y))
                ++y;
            while (y < bas && encre(x, y))
                ++y;
            while (y < bas && !encre(x, y))
                ++y, ++ecart;
            EXPECT_TRUE(y == bas || ecart >= 2) << titre << ", column " << x;
        }
    }
}

TEST(Dessin, AucunEmojiDuVoileNestUneTuileGrise) {
    const auto police = policeEmoji(92);
    if (!police) GTEST_SKIP() << "no colour emoji face installed (fonts-noto-color-emoji)";
    for (const char* cause : {"limite", "coupee", "site", "navigateur", "automatisation",
                              "pause_famille", "panier", "horaire"}) {
        RegleMac regle;
        regle.cause = cause;
        QImage image(140, 140, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter peintre(&image);
        peintre.setFont(*police);
        peintre.drawText(image.rect(), Qt::AlignCenter, QString::fromStdString(emojiVoile(regle)));
        peintre.end();
        // A grey tile's silhouettes are nearly black; the colour glyphs have no such mass.
        int traces = 0, noires = 0;
        for (int i = 0; i < 140 * 140; ++i) {
            const QColor c = image.pixelColor(i % 140, i / 140);
            traces += c != Qt::white;
            noires += c.value() < 50;
        }
        EXPECT_LT(noires * 20, traces) << cause;
    }
}

} // namespace tavi
