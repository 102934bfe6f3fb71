#pragma once

#include "engine/moteur.h"
#include "ui/actions_voile.h"

namespace tavi {

// The veil's buttons on the engine itself, which must outlive this object.
class ActionsMoteur : public ActionsVoile {
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

private:
    Moteur& moteur_;
};

} // namespace tavi
