#include "ui/voile_vue.h"

#include "ui/autocollant.h"
#include "ui/bouton_pilule.h"
#include "ui/charte.h"
#include "ui/etiquette.h"
#include "ui/lisible.h"
#include "ui/police.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QVBoxLayout>
#include <algorithm>

namespace tavi {

namespace {

// The sticker's content is as wide as the screen allows, up to 560.
constexpr int largeurMax = 560;
constexpr int margeEcran = 40;
constexpr int margesCarte = 2 * 28 + 6;

const QColor& couleur(BoutonVoile::Fond fond) {
    switch (fond) {
    case BoutonVoile::Fond::jaune:
        return Charte::jaune;
    case BoutonVoile::Fond::menthe:
        return Charte::menthe;
    case BoutonVoile::Fond::blanc:
        break;
    }
    return Charte::blanc;
}

} // namespace

VoileVue::VoileVue(ActionsVoile& actions, MotifVoile motif, QWidget* parent)
    : QWidget(parent), actions_(actions), motif_(std::move(motif)),
      carte_(new Autocollant(Charte::lilas)) {
    setAutoFillBackground(false);
    auto* racine = new QVBoxLayout(this);
    racine->setContentsMargins(margeEcran, margeEcran, margeEcran, 24);
    racine->addStretch();
    racine->addLayout(centree(carte_));
    racine->addStretch();
    racine->addWidget(etiquette("Tavi Home", policeArrondie(14, QFont::ExtraBold), Charte::doux));

    abonnement_ = actions_.observer([this] { rafraichir(); });
    rafraichir();
}

VoileVue::~VoileVue() = default;

void VoileVue::paintEvent(QPaintEvent*) {
    QPainter(this).fillRect(rect(), Charte::fond);
}

void VoileVue::resizeEvent(QResizeEvent* evenement) {
    ajusterLargeur();
    QWidget::resizeEvent(evenement);
}

void VoileVue::ajusterLargeur() {
    // Wrapped labels would otherwise let the layout pick the narrowest card that fits.
    if (interieur_)
        interieur_->setFixedWidth(
            std::clamp(width() - 2 * margeEcran - margesCarte, 0, largeurMax));
}

void VoileVue::ouvrirChoix() {
    choixTemps_ = true;
    rafraichir();
}

void VoileVue::rafraichir() {
    EtatVoile etat = actions_.etat();
    etat.choixTemps = choixTemps_;
    etat.envoi = envoi_;
    ContenuVoile contenu = contenuVoile(motif_, etat);
    if (contenu == contenu_) return;
    construire(contenu);
    contenu_ = std::move(contenu);
}

void VoileVue::construire(const ContenuVoile& contenu) {
    // The keyboard stays on the same button across a rebuild.
    std::optional<BoutonVoile::Action> focalise;
    if (auto* bouton = dynamic_cast<BoutonPilule*>(focusWidget()))
        focalise = static_cast<BoutonVoile::Action>(bouton->property("action").toInt());

    // The old content may hold the button being pressed: it goes once the press is over.
    if (interieur_) {
        interieur_->hide();
        carte_->contenu()->removeWidget(interieur_);
        interieur_->deleteLater();
    }
    interieur_ = new QWidget;
    auto* pile = new QVBoxLayout(interieur_);
    pile->setContentsMargins(0, 0, 0, 0);
    pile->setSpacing(18);
    carte_->contenu()->addWidget(interieur_);
    ajusterLargeur();

    const auto emoji = policeEmoji(92);
    if (emoji) pile->addWidget(etiquette(contenu.emoji, *emoji, Charte::encre));
    pile->addWidget(etiquette(contenu.titre, policeArrondie(34, QFont::Black), Charte::encre));
    pile->addLayout(centree(new Pastille(contenu.badge)));
    if (contenu.reveil)
        pile->addWidget(etiquette(*contenu.reveil, policeArrondie(17, QFont::Bold), Charte::doux));

    auto* actions = new QVBoxLayout;
    actions->setSpacing(12);
    actions->setContentsMargins(0, 6, 0, 0);
    if (contenu.question)
        actions->addWidget(
            etiquette(*contenu.question, policeArrondie(15, QFont::ExtraBold), Charte::encre));
    QWidget* premier = nullptr;
    QWidget* aFocaliser = nullptr;
    const auto ajouter = [&](QBoxLayout* dans, const BoutonVoile& b) {
        const std::string titre = emoji && !b.emoji.empty() ? b.emoji + " " + b.titre : b.titre;
        auto* pilule = new BoutonPilule(texteEcran(titre), couleur(b.fond));
        pilule->setEnabled(!b.desactive);
        pilule->setProperty("action", static_cast<int>(b.action));
        connect(pilule, &QAbstractButton::clicked, this, [this, b] { appuyer(b); });
        dans->addWidget(pilule);
        if (!premier) premier = pilule;
        if (focalise == b.action && !aFocaliser) aFocaliser = pilule;
    };
    auto* rangee = new QHBoxLayout;
    rangee->setSpacing(contenu.question ? 10 : 12);
    rangee->addStretch();
    for (const BoutonVoile& b : contenu.rangee)
        ajouter(rangee, b);
    rangee->addStretch();
    actions->addLayout(rangee);
    for (const BoutonVoile& b : contenu.suite) {
        auto* ligne = new QHBoxLayout;
        ligne->addStretch();
        ajouter(ligne, b);
        ligne->addStretch();
        actions->addLayout(ligne);
    }
    pile->addLayout(actions);

    if (contenu.message) {
        auto* message = etiquette(*contenu.message, policeArrondie(15, QFont::Bold), Charte::encre);
        message->setContentsMargins(14, 8, 14, 8);
        message->setAutoFillBackground(false);
        message->setStyleSheet(QStringLiteral("background: %1; color: %2; border-radius: 12px;")
                                   .arg(Charte::citron.name(), Charte::encre.name()));
        pile->addWidget(message);
    }
    if (aFocaliser || (focalise && premier)) (aFocaliser ? aFocaliser : premier)->setFocus();
}

void VoileVue::appuyer(const BoutonVoile& bouton) {
    switch (bouton.action) {
    case BoutonVoile::Action::choisir:
        ouvrirChoix();
        return;
    case BoutonVoile::Action::demander:
        return envoyer(&ActionsVoile::demanderTemps, bouton.minutes, true);
    case BoutonVoile::Action::tirelire:
        return envoyer(&ActionsVoile::utiliserTirelire, bouton.minutes, false);
    case BoutonVoile::Action::ok:
        actions_.fermerVoileAppli();
        return;
    case BoutonVoile::Action::reglages:
        actions_.ouvrirReglages();
        return;
    }
}

void VoileVue::envoyer(void (ActionsVoile::*operation)(int, std::function<void()>), int minutes,
                       bool fermerChoix) {
    // One request at a time: the buttons come back when it is over, whatever its outcome.
    if (envoi_) return;
    envoi_ = true;
    rafraichir();
    QPointer<VoileVue> vivante(this);
    (actions_.*operation)(minutes, [vivante, fermerChoix] {
        if (!vivante) return;
        vivante->envoi_ = false;
        if (fermerChoix) vivante->choixTemps_ = false;
        vivante->rafraichir();
    });
}

} // namespace tavi
