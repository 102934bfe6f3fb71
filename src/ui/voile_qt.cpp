#include "ui/voile_qt.h"

#include "ui/fenetre_voile.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTimer>

namespace tavi {

namespace {

// Long enough for a program that grabs for a moment (a menu, a drag) to let go by itself.
constexpr qint64 refusTolereMs = 5000;

} // namespace

VoileQt::VoileQt(std::unique_ptr<ActionsVoile> actions, std::unique_ptr<PriseEntrees> prise,
                 std::unique_ptr<GardeFenetres> garde)
    : actions_(std::move(actions)), prise_(std::move(prise)), garde_(std::move(garde)) {
    if (garde_)
        garde_->quandRepare = [this](const std::string& detail) {
            if (signaler) signaler("voile_repare", detail);
            // An unmapped window lost the grab with it.
            if (presentation_ == Presentation::verrouillee) prendre();
        };
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
    garde_.reset();
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
    garderFenetres();
    maintenir();
}

void VoileQt::garderFenetres() {
    if (!garde_) return;
    std::vector<GardeFenetres::Fenetre> gardees;
    for (FenetreVoile* fenetre : fenetres()) {
        // The screen's place is the same in the server's pixels; its size is scaled.
        const QRect g = fenetre->ecran()->geometry();
        const qreal densite = fenetre->ecran()->devicePixelRatio();
        gardees.push_back({fenetre->winId(), g.x(), g.y(), qRound(g.width() * densite),
                           qRound(g.height() * densite)});
    }
    garde_->garder(std::move(gardees));
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
    // Before the windows go: their unmapping is ours.
    if (garde_) garde_->garder({});
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
    if (presentation == Presentation::verrouillee) return prendre();
    prise_->relacher();
    prisTenue_ = false;
    refusDepuis_.invalidate();
    refusSignale_ = false;
}

void VoileQt::prendre() {
    if (!prise_ || fenetres_.empty() || !fenetres_.front()) return;
    prisTenue_ = prise_->prendre(fenetres_.front()->winId());
    if (prisTenue_) {
        refusDepuis_.invalidate();
        refusSignale_ = false;
        return;
    }
    if (!refusDepuis_.isValid()) refusDepuis_.start();
    // Once per refusal, however long it lasts; the engine spaces the reports anyway.
    if (refusDepuis_.elapsed() > refusTolereMs && !refusSignale_) {
        refusSignale_ = true;
        if (signaler) signaler("saisie_refusee", "clavier ou pointeur, plus de 5 s");
    }
}

std::vector<FenetreVoile*> VoileQt::fenetres() const {
    std::vector<FenetreVoile*> vivantes;
    for (const auto& fenetre : fenetres_)
        if (fenetre) vivantes.push_back(fenetre.data());
    return vivantes;
}

} // namespace tavi
