#include "app/filtre_fin.h"

#include "app/delegue.h"
#include "app/fin_processus.h"

#include <QCoreApplication>
#include <QEvent>

namespace tavi {

FiltreFin::FiltreFin(QCoreApplication& application, Delegue& delegue)
    : application_(application), delegue_(delegue) {
    application.installEventFilter(this);
}

bool FiltreFin::eventFilter(QObject* objet, QEvent* evenement) {
    if (objet != &application_ || evenement->type() != QEvent::Quit) return false;
    // Ending later means ending the process: the loop's own end would run destructors while
    // the background pool may still use what they destroy.
    if (delegue_.demandeFin([] { finirProcessus(0); }) == ReponseFin::maintenant) return false;
    evenement->ignore();
    return true;
}

} // namespace tavi
