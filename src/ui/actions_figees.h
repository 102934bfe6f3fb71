#pragma once

#include "ui/actions_voile.h"

namespace tavi {

// A veil's engine frozen in one state, whose buttons do nothing: what the captures and the
// benchmark draw.
class ActionsFigees : public ActionsVoile {
public:
    explicit ActionsFigees(EtatVoile etat) : etat_(std::move(etat)) {}

    EtatVoile etat() const override { return etat_; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override {
        return std::make_unique<Abonnement>();
    }
    void demanderTemps(int, std::function<void()>) override {}
    void utiliserTirelire(int, std::function<void()>) override {}
    void fermerVoileAppli() override {}
    void ouvrirReglages() override {}

private:
    EtatVoile etat_;
};

} // namespace tavi
