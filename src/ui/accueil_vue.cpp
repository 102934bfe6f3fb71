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

#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

namespace tavi {

namespace {

constexpr int largeur = 560;
constexpr int marge = 24;
// Longer than any code with its spaces and dashes; the field takes no more.
constexpr int longueurMaxChamp = 40;

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

void AccueilVue::ajusterHauteur() {
    // The height its wrapped labels need at the fixed width. Not adjustSize(): it caps a window
    // at two thirds of the screen, and the panel would be squeezed into that.
    layout()->activate();
    const int hauteur = layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(largeur)
                                                      : layout()->totalSizeHint().height();
    resize(largeur, hauteur);
    // A window whose step changed size stays centred on its screen, so it never runs off it.
    if (const QScreen* ecran = isWindow() ? screen() : nullptr) {
        QRect cadre = frameGeometry();
        cadre.setSize(cadre.size() - size() + QSize(largeur, hauteur));
        cadre.moveCenter(ecran->availableGeometry().center());
        move(cadre.topLeft());
    }
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
    champ_->setStyleSheet(QStringLiteral("QLineEdit { background: %1; color: %2; border: 2px solid "
                                         "%2; border-radius: 14px; padding: 8px 12px; }")
                              .arg(Charte::blanc.name(), Charte::encre.name()));
    consigne->setBuddy(champ_);
    connect(champ_, &QLineEdit::returnPressed, this, [this] { envoyer(); });
    pile->addWidget(champ_);

    rejoindre_ = new BoutonPilule(qt("Rejoindre"), Charte::jaune);
    connect(rejoindre_, &QAbstractButton::clicked, this, [this] { envoyer(); });
    pile->addLayout(centree(rejoindre_));

    erreurAffichee_ = paragraphe({}, Charte::rouge);
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
    pile->addWidget(paragraphe(texte(TextesPlateforme::ouSeTrouve())));
    auto* ok = new BoutonPilule(qt("OK"), Charte::jaune);
    connect(ok, &QAbstractButton::clicked, this, [this] { fermer(); });
    pile->addLayout(centree(ok));
    return carte;
}

} // namespace tavi
