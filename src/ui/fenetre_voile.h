#pragma once

#include "ui/voile_vue.h"

#include <QWidget>

class QScreen;

namespace tavi {

// One veil window: borderless, over the whole of one screen, above every other window, on every
// workspace and out of the task bar. Neither Escape nor the window manager's close dismisses
// it; only its controller takes it away.
//
// On X11 it is left unmanaged by the window manager (override-redirect): no manager may move,
// close, lower or hide it, and it shows on every workspace. Any other client still may, as X11
// forbids nothing: its controller's guard puts it back. On Wayland no client can ask that
// much: it is a full-screen window on its output, raised again by its controller.
class FenetreVoile : public QWidget {
public:
    FenetreVoile(ActionsVoile& actions, MotifVoile motif, QScreen* ecran);

    QScreen* ecran() const { return ecran_; }
    VoileVue& vue() const { return *vue_; }
    // Maps the window over its screen.
    void afficher();

protected:
    void closeEvent(QCloseEvent* evenement) override;
    void keyPressEvent(QKeyEvent* evenement) override;

private:
    QScreen* ecran_;
    VoileVue* vue_;
};

} // namespace tavi
