#pragma once

#include "ui/actions_accueil.h"
#include "ui/ce_que_voient.h"
#include "ui/etape_accueil.h"

#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class QLabel;
class QLineEdit;
class QTimer;

namespace tavi {

class BoutonPilule;

// The welcome window's content: the step still due (pairing, what the parents see, starting
// with the session, done), or the panel of what the parents see alone. The step is chosen
// again whenever the engine changes, and every 2 seconds the login agent's state is read
// again, so the window moves on by itself once the child allowed it.
//
// Main thread only. `actions` must outlive the view.
class AccueilVue : public QWidget {
public:
    // `fermer` is what the acknowledgement and "OK" do: closing this widget when not given.
    AccueilVue(ActionsAccueil& actions, bool seulementCeQueVoient,
               std::function<void()> fermer = {}, QWidget* parent = nullptr);
    ~AccueilVue() override;

    EtapeAccueil etape() const;
    // The join step's field and button (null on the other steps), and the error under them.
    QLineEdit* champCode() const { return champ_; }
    BoutonPilule* boutonRejoindre() const { return rejoindre_; }
    const std::optional<std::string>& erreur() const { return erreur_; }
    bool envoi() const { return envoi_; }

    // Sends the code typed in the field: cleaned, at least 8 characters, one request at a time.
    void envoyer();

protected:
    void paintEvent(QPaintEvent* evenement) override;
    bool event(QEvent* evenement) override;

private:
    void rafraichir();
    void construire(EtapeAccueil etape);
    QWidget* etapeRejoindre();
    QWidget* etapeDemarrage();
    QWidget* etapeFini();
    void majRejoindre();
    void fermer();
    // Fits the window to its step and its screen: as tall as the step, or as the screen
    // allows with the panel's lists scrolling; centred, never above the screen's top.
    void ajusterHauteur();
    int hauteurNaturelle();
    void invaliderJusquIci(QWidget* change);

    ActionsAccueil& actions_;
    const bool seulementCeQueVoient_;
    std::function<void()> fermer_;
    std::optional<std::string> erreur_;
    bool envoi_ = false;
    bool accordVu_ = false;
    bool autorise_ = false;
    bool decorVu_ = false; // the window manager's frame was measured

    std::optional<EtapeAccueil> affichee_;
    std::optional<CeQueVoient> panneau_; // what the panel shows, on its steps
    QWidget* contenu_ = nullptr;
    QLineEdit* champ_ = nullptr;
    BoutonPilule* rejoindre_ = nullptr;
    QLabel* erreurAffichee_ = nullptr;
    QTimer* minuterie_ = nullptr;
    std::unique_ptr<Abonnement> abonnement_;
};

} // namespace tavi
