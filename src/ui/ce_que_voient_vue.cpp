#include "ui/ce_que_voient_vue.h"

#include "commun/texte.h"
#include "ui/bouton_pilule.h"
#include "ui/ce_que_voient.h"
#include "ui/charte.h"
#include "ui/etiquette.h"
#include "ui/police.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

namespace tavi {

namespace {

// One line: the icon before the message, the message wrapping over several lines. Without a
// colour emoji face the icon is a plain bullet, never an empty box.
QHBoxLayout* point(const PointPanneau& p) {
    static const std::optional<QFont> emoji = policeEmoji(18);
    auto* ligne = new QHBoxLayout;
    ligne->setSpacing(10);
    QLabel* icone =
        emoji ? etiquette(p.icone, *emoji, Charte::encre, Qt::AlignTop)
              : etiquette("•", policeArrondie(18, QFont::Black), Charte::encre, Qt::AlignTop);
    icone->setFixedWidth(28);
    icone->setWordWrap(false);
    ligne->addWidget(icone, 0, Qt::AlignTop);
    ligne->addWidget(etiquette(p.texte, policeArrondie(15, QFont::DemiBold), Charte::encre,
                               Qt::AlignLeft | Qt::AlignTop),
                     1);
    return ligne;
}

QLabel* titre(const char* francais) {
    return etiquette(texte(francais), policeArrondie(22, QFont::Black), Charte::encre,
                     Qt::AlignLeft);
}

} // namespace

CeQueVoientVue::CeQueVoientVue(const std::optional<Consigne>& consigne,
                               std::function<void()> compris, QWidget* parent)
    : QWidget(parent) {
    const CeQueVoient panneau = ceQueVoient(consigne);
    auto* pile = new QVBoxLayout(this);
    pile->setContentsMargins(0, 0, 0, 0);
    pile->setSpacing(10);
    pile->addWidget(defilement(panneau));
    auto* bouton = new BoutonPilule(QString::fromStdString(texte("J'ai compris")), Charte::jaune);
    connect(bouton, &QAbstractButton::clicked, this, [compris = std::move(compris)] {
        if (compris) compris();
    });
    pile->addLayout(centree(bouton));
}

QScrollArea* CeQueVoientVue::defilement(const CeQueVoient& panneau) {
    // The lists scroll on a screen too low for them; the button stays below, always in view.
    auto* listes = new QWidget;
    auto* pile = new QVBoxLayout(listes);
    pile->setContentsMargins(0, 0, 0, 0);
    pile->setSpacing(10);
    pile->addWidget(titre("Ce que tes parents peuvent voir"));
    for (const PointPanneau& p : panneau.voient)
        pile->addLayout(point(p));
    pile->addSpacing(8);
    pile->addWidget(titre("Ce qu'ils ne voient pas"));
    pile->addLayout(point(panneau.voientPas));
    pile->addSpacing(8);

    auto* zone = new QScrollArea;
    zone->setFrameShape(QFrame::NoFrame);
    zone->setWidgetResizable(true);
    zone->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The card's own colour shows through.
    zone->viewport()->setAutoFillBackground(false);
    zone->setWidget(listes);
    // After setWidget, which fills it with the window's grey.
    listes->setAutoFillBackground(false);
    return zone;
}

} // namespace tavi
