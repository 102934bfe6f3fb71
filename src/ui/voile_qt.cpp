#include "ui/voile_qt.h"

#include "ui/fenetre_voile.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTimer>

namespace tavi {

VoileQt::VoileQt(std::unique_ptr<ActionsVoile> actions, std::unique_ptr<PriseEntrees> prise)
    : actions_(std::move(actions)), prise_(std::move(prise)) {
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, &contexte_, [this](QScreen* ecran) {
        suivreEcran(ecran);
        reconstruire();
    });
    QObject::connect(qGuiApp, &QGuiApplication::screenRemoved, &contexte_,
                     [this](QScreen*) { reconstruire(); });
    for (QScreen* ecran : QGuiApplication::screens())
        suivreEcran(ecran);
}

VoileQt::~VoileQt() {
    if (prise_) prise_->relacher();
    for (const auto& fenetre : fenetres_)
        delete fenetre.data();
}

void VoileQt::suivreEcran(QScreen* ecran) {
    QObject::connect(ecran, &QScreen::geometryChanged, &contexte_, [this] { reconstruire(); });
}

void VoileQt::reconstruire() {
    // Once the change is over: while a screen is being removed it may still be in the list.
    QTimer::singleShot(0, &contexte_, [this] {
        if (!motif_) return;
        const MotifVoile motif = *motif_;
        retirerFenetres();
        montrer(motif);
    });
}

void VoileQt::montrer(const MotifVoile& motif) {
    if (motif_ == motif && !fenetres_.empty()) return maintenir();
    motif_ = motif;
    retirerFenetres();
    for (QScreen* ecran : QGuiApplication::screens()) {
        auto* fenetre = new FenetreVoile(*actions_, motif, ecran);
        fenetre->afficher();
        fenetres_.emplace_back(fenetre);
    }
    maintenir();
}

void VoileQt::maintenir() {
    if (!motif_) return;
    if (fenetres().size() != static_cast<std::size_t>(QGuiApplication::screens().size())) {
        const MotifVoile motif = *motif_;
        retirerFenetres();
        motif_.reset();
        return montrer(motif);
    }
    for (FenetreVoile* fenetre : fenetres())
        fenetre->raise();
    if (!fenetres_.empty() && fenetres_.front() && !fenetres_.front()->isActiveWindow())
        fenetres_.front()->activateWindow();
    presenter(motif_->estPause() ? Presentation::verrouillee : Presentation::normale);
}

void VoileQt::retirerFenetres() {
    for (const auto& fenetre : fenetres_) {
        if (!fenetre) continue;
        fenetre->vue().detacher();
        fenetre->hide();
        // Not at once: the window may hold the button whose press withdrew it.
        fenetre->deleteLater();
    }
    fenetres_.clear();
    // A grab ends with the window that held it.
    prisTenue_ = false;
}

void VoileQt::presenter(Presentation presentation) {
    presentation_ = presentation;
    if (!prise_) return;
    if (presentation == Presentation::verrouillee) {
        if (!fenetres_.empty() && fenetres_.front())
            prisTenue_ = prise_->prendre(fenetres_.front()->winId());
    } else {
        prise_->relacher();
        prisTenue_ = false;
    }
}

std::vector<FenetreVoile*> VoileQt::fenetres() const {
    std::vector<FenetreVoile*> vivantes;
    for (const auto& fenetre : fenetres_)
        if (fenetre) vivantes.push_back(fenetre.data());
    return vivantes;
}

} // namespace tavi
