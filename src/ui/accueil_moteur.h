#pragma once

#include "engine/moteur.h"
#include "ui/actions_accueil.h"

namespace tavi {

// The welcome window on the engine itself, which must outlive this object.
class AccueilMoteur : public ActionsAccueil {
public:
    explicit AccueilMoteur(Moteur& moteur) : moteur_(moteur) {}

    bool relie() const override { return moteur_.relie(); }
    std::optional<Consigne> consigne() const override { return moteur_.consigne(); }
    std::string prenom() const override { return moteur_.prenom(); }
    bool accordDonne() const override { return moteur_.accordDonne(); }
    void consentir() override { moteur_.consentir(); }
    bool agentActif() const override { return moteur_.agentActif(); }
    void lireEtatAgent(std::function<void()> fini) override {
        moteur_.lireEtatAgent(std::move(fini));
    }
    void autoriser() override;
    void rejoindre(const std::string& code,
                   std::function<void(std::optional<std::string>)> fini) override;
    bool installe() const override;
    bool zoneNotification() const override;
    std::unique_ptr<Abonnement> observer(std::function<void()> quand) override {
        return moteur_.observer(std::move(quand));
    }

private:
    Moteur& moteur_;
};

} // namespace tavi
