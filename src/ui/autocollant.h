#pragma once

#include <QColor>
#include <QWidget>

class QVBoxLayout;

namespace tavi {

// The sticker: a card filled with `fond`, outlined in ink, with a hard ink shadow 6 px to the
// right and below. Its content goes into `contenu()`, 28 px inside the outline.
class Autocollant : public QWidget {
public:
    explicit Autocollant(const QColor& fond, QWidget* parent = nullptr);

    QVBoxLayout* contenu() const { return contenu_; }

protected:
    void paintEvent(QPaintEvent* evenement) override;

private:
    QColor fond_;
    QVBoxLayout* contenu_;
};

} // namespace tavi
