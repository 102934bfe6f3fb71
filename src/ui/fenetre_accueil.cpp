#include "ui/fenetre_accueil.h"

#include "ui/accueil_vue.h"

namespace tavi {

FenetreAccueil::~FenetreAccueil() {
    delete fenetre_.data();
}

void FenetreAccueil::montrer(ActionsAccueil& actions, bool seulementCeQueVoient) {
    if (fenetre_) fenetre_->close();
    auto* vue = new AccueilVue(actions, seulementCeQueVoient);
    // Closing deletes it (later, outside any of its own handlers).
    vue->setAttribute(Qt::WA_DeleteOnClose);
    // Customised, so that only the close button the flags name is asked for: Qt would add a
    // maximise button. The window's fixed size keeps window managers from offering one anyway.
    vue->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowStaysOnTopHint |
                        Qt::WindowCloseButtonHint | Qt::WindowTitleHint);
    vue->setWindowTitle(QStringLiteral("Tavi Home"));
    fenetre_ = vue;
    vue->show();
    vue->raise();
    vue->activateWindow();
}

} // namespace tavi
