#pragma once

#include "engine/moteur.h"
#include "ui/actions_barre.h"
#include "ui/actions_voile.h"

namespace tavi {

// The veil's buttons and the status item's menu on the engine itself, which must outlive this
// object. The requests and the observation are the same for both.
class ActionsMoteur : public ActionsVoile, public ActionsBarre {
public:
    explicit ActionsMoteur(Moteur& moteur) : moteur_(moteur) {}

    EtatVoile etat() const override;
    std::unique_ptr<Abonnement> observer(std::function<void()> quand) override {
        return moteur_.observer(std::move(quand));
    }
    void demanderTemps(int minutes, std::function<void()> fini) override {
        moteur_.demanderTemps(minutes, std::move(fini));
    }
    void utiliserTirelire(int minutes, std::function<void()> fini) override {
        moteur_.utiliserTirelire(minutes, std::move(fini));
    }
    void fermerVoileAppli() override { moteur_.fermerVoileAppli(); }
    void ouvrirReglages() override;

    EtatBarre etatBarre() const override;
    bool voileAffiche() const override { return moteur_.voile().affiche(); }
    void reglages() override;

private:
    Moteur& moteur_;
};

} // namespace tavi
