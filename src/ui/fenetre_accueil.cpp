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
    vue->setWindowFlags(Qt::Window | Qt::WindowStaysOnTopHint | Qt::WindowCloseButtonHint |
                        Qt::WindowTitleHint);
    vue->setWindowTitle(QStringLiteral("Tavi Home"));
    fenetre_ = vue;
    vue->show();
    vue->raise();
    vue->activateWindow();
}

} // namespace tavi
