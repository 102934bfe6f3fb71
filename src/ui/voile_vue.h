#pragma once

#include "engine/motif_voile.h"
#include "ui/actions_voile.h"
#include "ui/contenu_voile.h"

#include <QWidget>
#include <memory>
#include <optional>

class QVBoxLayout;

namespace tavi {

class Autocollant;

// What one veil window shows: the sticker with the reason, the wake line, the buttons and the
// engine's message, on the veil's background, with "Tavi Home" at the bottom. It redraws when
// the engine's state changes what it shows; whether the duration choices are open and whether
// a request is under way are its own, and start closed and idle.
class VoileVue : public QWidget {
public:
    VoileVue(ActionsVoile& actions, MotifVoile motif, QWidget* parent = nullptr);
    ~VoileVue() override;

    const MotifVoile& motif() const { return motif_; }
    const ContenuVoile& contenu() const { return *contenu_; }
    // Recomputes what the window shows and rebuilds it if that changed.
    void rafraichir();
    // Stops following the engine: the window is on its way out.
    void detacher() { abonnement_.reset(); }
    // Opens the duration choices, as the "ask for time" button does (for the captures).
    void ouvrirChoix();

protected:
    void paintEvent(QPaintEvent* evenement) override;
    void resizeEvent(QResizeEvent* evenement) override;

private:
    void construire(const ContenuVoile& contenu);
    void ajusterLargeur();
    void appuyer(const BoutonVoile& bouton);
    void envoyer(void (ActionsVoile::*operation)(int, std::function<void()>), int minutes,
                 bool fermerChoix);

    ActionsVoile& actions_;
    const MotifVoile motif_;
    bool choixTemps_ = false;
    bool envoi_ = false;
    std::optional<ContenuVoile> contenu_;
    Autocollant* carte_;
    QWidget* interieur_ = nullptr;
    std::unique_ptr<Abonnement> abonnement_;
};

} // namespace tavi
