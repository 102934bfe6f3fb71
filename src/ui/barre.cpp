#include "ui/barre.h"

#include "commun/journal.h"
#include "ui/affichable.h"
#include "ui/icone_barre.h"
#include "ui/menu_qt.h"

#include <QCursor>
#include <QMessageBox>
#include <QPointer>
#include <chrono>

namespace tavi {

namespace {

const QString nomAppli = QStringLiteral("Tavi Home");

} // namespace

Barre::Barre(ActionsBarre& actions, Notifications* notifications)
    : actions_(actions), notifications_(notifications) {
    // Rebuilt from the engine's state each time it opens, so it never shows a stale state.
    QObject::connect(&menu_, &QMenu::aboutToShow, this, [this] {
        remplirMenu(menu_, menuBarre(actions_.etatBarre()),
                    [this](const EntreeMenu& entree) { choisir(entree); });
    });
    guet_.setInterval(std::chrono::seconds(10));
    QObject::connect(&guet_, &QTimer::timeout, this, [this] { guetterHote(); });

    creerIcone();
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        icone_->show();
    } else {
        journaliser("Tavi Home : pas de zone de notification pour l'icône, nouvel essai toutes "
                    "les 10 s");
        guet_.start();
    }
    abonnement_ = actions_.observer([this] { maj(); });
}

Barre::~Barre() = default;

void Barre::creerIcone() {
    icone_ = std::make_unique<QSystemTrayIcon>();
    icone_->setContextMenu(&menu_);
    // A left click opens the same menu: the child does not have to know the right button.
    QObject::connect(icone_.get(), &QSystemTrayIcon::activated, this,
                     [this](QSystemTrayIcon::ActivationReason raison) {
                         if (raison == QSystemTrayIcon::Trigger) menu_.popup(QCursor::pos());
                     });
    dernierTitre_.clear();
    maj();
}

void Barre::guetterHote() {
    if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
    guet_.stop();
    // Made anew: Qt picks between a notifier host and an XEmbed tray when the icon is made,
    // and an XEmbed icon shown without a tray never looks for one again.
    creerIcone();
    icone_->show();
}

void Barre::maj() {
    const IconeBarre icone = iconeBarre(actions_.etatBarre());
    std::string cle = icone.cle();
    if (cle == dernierTitre_) return;
    dernierTitre_ = std::move(cle);
    ++dessins_;
    icone_->setIcon(iconeQt(icone));
    // Some hosts read a tooltip as markup: a rule's title from the server keeps no angle
    // bracket to open a tag with.
    QString texte = QString::fromStdString(icone.texte);
    texte.replace(QLatin1Char('<'), QChar(0x2039)).replace(QLatin1Char('>'), QChar(0x203A));
    icone_->setToolTip(texte.isEmpty() ? nomAppli : nomAppli + QStringLiteral(" · ") + texte);
}

void Barre::choisir(const EntreeMenu& entree) {
    using A = EntreeMenu::Action;
    const QPointer<Barre> vivant(this);
    const auto puisInformer = [vivant] {
        if (vivant) vivant->informer();
    };
    switch (entree.action) {
    case A::aucune:
        break;
    case A::accueil:
        if (ouvrirAccueil) ouvrirAccueil();
        break;
    case A::ceQueVoient:
        if (ouvrirCeQueVoient) ouvrirCeQueVoient();
        break;
    case A::reglages:
        actions_.reglages();
        break;
    case A::demander:
        actions_.demanderTemps(entree.minutes, puisInformer);
        break;
    case A::tirelire:
        actions_.utiliserTirelire(entree.minutes, puisInformer);
        break;
    }
}

void Barre::informer() {
    if (actions_.voileAffiche()) return;
    const auto message = actions_.etatBarre().message;
    if (!message) return;
    const std::string texte = affichable(*message, maxMessage);
    if (!notifications_) return montrerBoite(QString::fromStdString(texte));
    // The desktop's way of saying something short; where it has no server, the box says it.
    const QPointer<Barre> vivant(this);
    notifications_->notifier(nomAppli.toStdString(), texte, "message", [vivant, texte](bool pris) {
        if (!pris && vivant) vivant->montrerBoite(QString::fromStdString(texte));
    });
}

void Barre::montrerBoite(const QString& message) {
    // Not modal, deliberately: a modal box left open would hold the main loop, and with it the
    // engine's count of the time used. One box, brought back rather than stacked.
    if (!boite_) {
        boite_ = std::make_unique<QMessageBox>();
        boite_->setWindowTitle(nomAppli);
        boite_->setIcon(QMessageBox::Information);
        boite_->setStandardButtons(QMessageBox::Ok);
        boite_->setWindowModality(Qt::NonModal);
        // The message comes from the server: never read as markup.
        boite_->setTextFormat(Qt::PlainText);
        // Often the agent's only window: closing it must not end the agent.
        boite_->setAttribute(Qt::WA_QuitOnClose, false);
    }
    boite_->setText(message);
    boite_->show();
    boite_->raise();
    boite_->activateWindow();
}

} // namespace tavi
