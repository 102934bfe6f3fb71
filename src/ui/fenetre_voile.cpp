#include "ui/fenetre_voile.h"

#include "ui/charte.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

namespace tavi {

namespace {

bool surWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

} // namespace

FenetreVoile::FenetreVoile(ActionsVoile& actions, MotifVoile motif, QScreen* ecran)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           (surWayland() ? Qt::WindowFlags() : Qt::BypassWindowManagerHint)),
      ecran_(ecran), vue_(new VoileVue(actions, std::move(motif), this)) {
    setAttribute(Qt::WA_DeleteOnClose, false);
    setWindowTitle(QStringLiteral("Tavi Home"));
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Charte::fond);
    setPalette(palette);
    setAutoFillBackground(true);
    auto* disposition = new QVBoxLayout(this);
    disposition->setContentsMargins(0, 0, 0, 0);
    disposition->addWidget(vue_);
    setScreen(ecran);
    // Never larger than its screen, even where the content asks for more (a tiny screen, a
    // large scale): a window that grows past its screen would have to be brought back.
    setFixedSize(ecran->geometry().size());
    setGeometry(ecran->geometry());
}

void FenetreVoile::afficher() {
    if (surWayland())
        showFullScreen();
    else
        show();
}

void FenetreVoile::closeEvent(QCloseEvent* evenement) {
    evenement->ignore();
}

void FenetreVoile::keyPressEvent(QKeyEvent* evenement) {
    // Escape, and Alt+F4 where a window manager turns it into a close, do nothing; Tab and the
    // buttons' keys were taken by the buttons before.
    evenement->accept();
}

} // namespace tavi
