#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>

// The baseline of the windowed agent's cost: a QApplication with a tray icon and its menu,
// woken by a 1-second timer that does nothing.
int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QPixmap image(22, 22);
    image.fill(Qt::transparent);
    QPainter peintre(&image);
    peintre.setBrush(QColor(255, 214, 0));
    peintre.drawEllipse(1, 1, 20, 20);
    peintre.end();
    QSystemTrayIcon icone{QIcon(image)};
    QMenu menu;
    menu.addAction(QStringLiteral("Tavi Home"));
    icone.setContextMenu(&menu);
    icone.show();
    QTimer minuterie;
    QObject::connect(&minuterie, &QTimer::timeout, [] {});
    minuterie.start(1000);
    return QApplication::exec();
}
