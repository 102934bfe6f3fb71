#pragma once

#include "ui/actions_barre.h"

namespace tavi {

// The status item's engine frozen in one state, whose entries do nothing: what the captures
// draw.
class BarreFigee : public ActionsBarre {
public:
    explicit BarreFigee(EtatBarre etat) : etat_(std::move(etat)) {}

    EtatBarre etatBarre() const override { return etat_; }
    std::unique_ptr<Abonnement> observer(std::function<void()>) override {
        return std::make_unique<Abonnement>();
    }
    void demanderTemps(int, std::function<void()>) override {}
    void utiliserTirelire(int, std::function<void()>) override {}
    bool voileAffiche() const override { return false; }
    void reglages() override {}

private:
    EtatBarre etat_;
};

} // namespace tavi
