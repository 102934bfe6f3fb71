#include "ui/accueil_vue.h"

#include "commun/texte.h"
#include "ui/affichable.h"
#include "ui/autocollant.h"
#include "ui/bouton_pilule.h"
#include "ui/ce_que_voient.h"
#include "ui/ce_que_voient_vue.h"
#include "ui/charte.h"
#include "ui/etiquette.h"
#include "ui/police.h"
#include "ui/textes_plateforme.h"

#include <QEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QScreen>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

namespace tavi {

namespace {

constexpr int largeur = 560;
constexpr int marge = 24;
// Longer than any code with its spaces and dashes; the field takes no more.
constexpr int longueurMaxChamp = 40;
// A title bar's height until the window manager's frame is known.
constexpr int decorEstime = 48;
// A scroll area never gets lower than a few lines.
constexpr int hauteurMinZone = 120;

QString qt(const char* francais) {
    return QString::fromStdString(texte(francais));
}

QLabel* titre(const std::string& texte) {
    return etiquette(texte, policeArrondie(26, QFont::Black), Charte::encre);
}

QLabel* paragraphe(const std::string& texte, const QColor& couleur = Charte::encre) {
    return etiquette(texte, policeArrondie(15, QFont::DemiBold), couleur);
}

} // namespace

AccueilVue::AccueilVue(ActionsAccueil& actions, bool seulementCeQueVoient,
                       std::function<void()> fermer, QWidget* parent)
    : QWidget(parent), actions_(actions), seulementCeQueVoient_(seulementCeQueVoient),
      fermer_(std::move(fermer)), accordVu_(actions.accordDonne()), autorise_(actions.agentActif()),
      minuterie_(new QTimer(this)) {
    setFixedWidth(largeur);
    auto* racine = new QVBoxLayout(this);
    racine->setContentsMargins(marge, marge, marge + 6, marge + 6);

    abonnement_ = actions_.observer([this] { rafraichir(); });
    // The login step gives way to the last one by itself, at most two seconds after the child
    // allowed the agent.
    minuterie_->setInterval(2000);
    connect(minuterie_, &QTimer::timeout, this, [this] {
        QPointer<AccueilVue> vivante(this);
        actions_.lireEtatAgent([vivante] {
            if (!vivante) return;
            vivante->autorise_ = vivante->actions_.agentActif();
            vivante->rafraichir();
        });
    });
    minuterie_->start();
    rafraichir();
}

AccueilVue::~AccueilVue() = default;

EtapeAccueil AccueilVue::etape() const {
    return etapeAccueil({seulementCeQueVoient_, actions_.relie(), accordVu_, autorise_});
}

void AccueilVue::paintEvent(QPaintEvent*) {
    QPainter(this).fillRect(rect(), Charte::fond);
}

void AccueilVue::rafraichir() {
    const EtapeAccueil e = etape();
    const bool panneau = e == EtapeAccueil::ceQueVoientSeul || e == EtapeAccueil::accord;
    // The panel follows the rule set, which may arrive after the pairing that showed it.
    if (e != affichee_ || (panneau && ceQueVoient(actions_.consigne()) != panneau_)) construire(e);
    if (e == EtapeAccueil::rejoindre) majRejoindre();
}

void AccueilVue::construire(EtapeAccueil e) {
    if (contenu_) {
        // The old content may hold the button being pressed: it goes once the press is over.
        contenu_->hide();
        layout()->removeWidget(contenu_);
        contenu_->deleteLater();
    }
    champ_ = nullptr;
    rejoindre_ = nullptr;
    erreurAffichee_ = nullptr;
    panneau_.reset();
    affichee_ = e;

    switch (e) {
    case EtapeAccueil::ceQueVoientSeul:
    case EtapeAccueil::accord: {
        auto* carte = new Autocollant(Charte::blanc);
        panneau_ = ceQueVoient(actions_.consigne());
        const bool seul = e == EtapeAccueil::ceQueVoientSeul;
        carte->contenu()->addWidget(new CeQueVoientVue(actions_.consigne(), [this, seul] {
            // Acknowledged: the engine stops asking for the reports shown here.
            actions_.consentir();
            if (seul) return fermer();
            accordVu_ = true;
            rafraichir();
        }));
        contenu_ = carte;
        break;
    }
    case EtapeAccueil::rejoindre:
        contenu_ = etapeRejoindre();
        break;
    case EtapeAccueil::demarrage:
        contenu_ = etapeDemarrage();
        break;
    case EtapeAccueil::fini:
        contenu_ = etapeFini();
        break;
    }
    layout()->addWidget(contenu_);
    // Shown now rather than at the loop's next turn, so that the height below counts it.
    contenu_->show();
    // The keyboard starts on the step's first control.
    if (champ_)
        champ_->setFocus();
    else if (auto* bouton = contenu_->findChild<BoutonPilule*>())
        bouton->setFocus();
    ajusterHauteur();
}

void AccueilVue::invaliderJusquIci(QWidget* change) {
    // The layouts between keep the sizes they measured until told, and a window not yet
    // shown tells them nothing.
    for (QWidget* w = change; w; w = w->parentWidget()) {
        w->updateGeometry();
        if (w->layout()) w->layout()->invalidate();
        if (w == this) break;
    }
}

int AccueilVue::hauteurNaturelle() {
    layout()->activate();
    return layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(largeur)
                                         : layout()->totalSizeHint().height();
}

void AccueilVue::ajusterHauteur() {
    // The height its wrapped labels need at the fixed width. Not adjustSize(): it caps a window
    // at two thirds of the screen, and the panel would be squeezed into that.
    const QList<QScrollArea*> zones = findChildren<QScrollArea*>();
    // Each scroll area as tall as what it holds at the width the layouts give it, known from
    // their margins: a hidden window's inner layouts have not placed anything yet.
    for (QScrollArea* zone : zones) {
        int l = largeur;
        for (QWidget* w = zone->parentWidget(); w; w = w->parentWidget()) {
            if (w->layout())
                l -= w->layout()->contentsMargins().left() + w->layout()->contentsMargins().right();
            if (w == this) break;
        }
        QWidget* dedans = zone->widget();
        zone->setFixedHeight(dedans->hasHeightForWidth() ? dedans->heightForWidth(l)
                                                         : dedans->sizeHint().height());
        invaliderJusquIci(zone);
    }
    int hauteur = hauteurNaturelle();

    const QScreen* ecran = isWindow() ? screen() : nullptr;
    if (ecran) {
        // On a low screen (1024 x 600) the scroll areas give up what the window lacks, its
        // title bar included, so that the button below them stays on the screen.
        const QRect dispo = ecran->availableGeometry();
        const int decor = decorVu_ ? frameGeometry().height() - height() : decorEstime;
        const int trop = hauteur + decor - dispo.height();
        for (QScrollArea* zone : zones) {
            if (trop <= 0) break;
            zone->setFixedHeight(std::max(hauteurMinZone, zone->maximumHeight() - trop));
            invaliderJusquIci(zone);
            hauteur = hauteurNaturelle();
        }
    }
    // Fixed, so that the window manager offers no maximise: a wider window would only leave
    // the panel stuck on its left.
    setFixedSize(largeur, hauteur);
    // A window whose step changed size stays centred on its screen, never above its top.
    if (ecran) {
        const QRect dispo = ecran->availableGeometry();
        QRect cadre = frameGeometry();
        const int decor = decorVu_ ? cadre.height() - height() : decorEstime;
        cadre.setSize(QSize(largeur + (decorVu_ ? cadre.width() - width() : 0), hauteur + decor));
        cadre.moveCenter(dispo.center());
        if (cadre.top() < dispo.top()) cadre.moveTop(dispo.top());
        move(cadre.topLeft());
    }
}

bool AccueilVue::event(QEvent* evenement) {
    // The window manager's frame is known once the window is on the screen: the fit is done
    // again with its real height.
    if (evenement->type() == QEvent::Show || evenement->type() == QEvent::WindowActivate) {
        const bool connu = isWindow() && frameGeometry().height() > height();
        if (connu && !decorVu_) {
            decorVu_ = true;
            ajusterHauteur();
        }
    }
    return QWidget::event(evenement);
}

QWidget* AccueilVue::etapeRejoindre() {
    auto* carte = new Autocollant(Charte::lilas);
    auto* pile = carte->contenu();
    pile->setSpacing(14);
    pile->addWidget(titre(texte("Relie cet ordinateur à ta famille")));
    QLabel* consigne = paragraphe(texte("Demande à tes parents d'ouvrir Tavi Home, ta fiche, puis "
                                        "« Ajouter un ordinateur ». Tape le code qu'ils voient :"));
    pile->addWidget(consigne);

    champ_ = new QLineEdit;
    champ_->setPlaceholderText(QStringLiteral("ABCD 2345"));
    champ_->setMaxLength(longueurMaxChamp);
    champ_->setFont(policeArrondie(24, QFont::Bold));
    champ_->setAlignment(Qt::AlignCenter);
    champ_->setInputMethodHints(Qt::ImhPreferUppercase | Qt::ImhNoPredictiveText);
    champ_->setAccessibleName(qt("Code"));
    champ_->setAccessibleDescription(consigne->text());
    champ_->setStyleSheet(QStringLiteral("QLineEdit { background: %1; border: 2px solid %2; "
                                         "border-radius: 14px; padding: 8px 12px; }")
                              .arg(Charte::blanc.name(), Charte::encre.name()));
    // The text's colours go through the palette: a style sheet's colour would make the
    // placeholder the ink at half strength (3.4:1 on white). The soft ink reads at 5.7:1 and
    // still looks like an example, not a typed code.
    QPalette palette = champ_->palette();
    palette.setColor(QPalette::Text, Charte::encre);
    palette.setColor(QPalette::PlaceholderText, Charte::doux);
    champ_->setPalette(palette);
    consigne->setBuddy(champ_);
    connect(champ_, &QLineEdit::returnPressed, this, [this] { envoyer(); });
    pile->addWidget(champ_);

    rejoindre_ = new BoutonPilule(qt("Rejoindre"), Charte::jaune);
    connect(rejoindre_, &QAbstractButton::clicked, this, [this] { envoyer(); });
    pile->addLayout(centree(rejoindre_));

    erreurAffichee_ = paragraphe({}, Charte::rougeTexte);
    erreurAffichee_->setFont(policeArrondie(15, QFont::ExtraBold));
    pile->addWidget(erreurAffichee_);
    if (!actions_.installe())
        pile->addWidget(paragraphe(texte(TextesPlateforme::conseilInstallation()), Charte::doux));
    return carte;
}

void AccueilVue::majRejoindre() {
    if (!rejoindre_) return;
    rejoindre_->setEnabled(!envoi_);
    erreurAffichee_->setText(erreur_ ? texteEcran(affichable(*erreur_, maxMessage)) : QString());
    erreurAffichee_->setVisible(erreur_.has_value());
    ajusterHauteur();
}

void AccueilVue::envoyer() {
    if (!champ_) return;
    const std::string code = nettoyerCode(champ_->text().toStdString());
    if (code.size() < longueurMinCode || envoi_) return;
    envoi_ = true;
    erreur_.reset();
    majRejoindre();
    QPointer<AccueilVue> vivante(this);
    actions_.rejoindre(code, [vivante](std::optional<std::string> erreur) {
        if (!vivante) return;
        vivante->envoi_ = false;
        // The field keeps the typed code, so the child can correct it.
        vivante->erreur_ = std::move(erreur);
        vivante->rafraichir();
    });
}

void AccueilVue::fermer() {
    if (fermer_)
        fermer_();
    else
        close();
}

QWidget* AccueilVue::etapeDemarrage() {
    auto* carte = new Autocollant(Charte::blanc);
    auto* pile = carte->contenu();
    pile->setSpacing(14);
    pile->addWidget(titre(texte("Dernière étape")));
    pile->addWidget(paragraphe(texte(TextesPlateforme::etapeDemarrage())));
    pile->addWidget(
        paragraphe(texte("Tant que ce n'est pas fait, tes parents voient « protection coupée »."),
                   Charte::doux));
    auto* bouton = new BoutonPilule(qt(TextesPlateforme::boutonReglages()), Charte::jaune);
    connect(bouton, &QAbstractButton::clicked, this, [this] { actions_.autoriser(); });
    pile->addLayout(centree(bouton));
    return carte;
}

QWidget* AccueilVue::etapeFini() {
    auto* carte = new Autocollant(Charte::menthe);
    auto* pile = carte->contenu();
    pile->setSpacing(14);
    if (const auto emoji = policeEmoji(64)) pile->addWidget(etiquette("🎉", *emoji, Charte::encre));
    pile->addWidget(titre(texteAvec("C'est prêt, %@ !", affichable(actions_.prenom(), maxNom))));
    // Where the desktop shows no icon, the step says so rather than send the child looking.
    pile->addWidget(paragraphe(texte(actions_.zoneNotification() ? TextesPlateforme::ouSeTrouve()
                                                                 : TextesPlateforme::sansIcone())));
    auto* ok = new BoutonPilule(qt("OK"), Charte::jaune);
    connect(ok, &QAbstractButton::clicked, this, [this] { fermer(); });
    pile->addLayout(centree(ok));
    return carte;
}

} // namespace tavi
