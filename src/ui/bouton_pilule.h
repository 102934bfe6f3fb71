#pragma once

#include <QAbstractButton>
#include <QColor>

namespace tavi {

// The pill-shaped button of every child-facing surface: the title in heavy rounded ink on a
// capsule filled with `fond` and outlined in ink. Disabled, it ignores presses and is drawn
// faded. The title is its accessible name; Tab reaches it, and Space or Return presses it.
class BoutonPilule : public QAbstractButton {
public:
    BoutonPilule(const QString& titre, const QColor& fond, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* evenement) override;
    void keyPressEvent(QKeyEvent* evenement) override;

private:
    QColor fond_;
};

} // namespace tavi
