#pragma once

#include "platform/session.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tavi::test {

// A session whose answers the test sets, and whose changes it announces with `annoncer`.
// By default: unlocked, on the console, input a second ago.
class FausseSession : public Session {
public:
    std::optional<bool> verrouille = false;
    std::optional<bool> console = true;
    std::optional<double> inactivite = 1.0;
    std::optional<bool> retenue = false;

    std::unique_ptr<Abonnement> observer(std::function<void(EvenementSession)> quand) override {
        auto cible = std::make_shared<std::function<void(EvenementSession)>>(std::move(quand));
        abonne = cible;
        return std::make_unique<Lien>(std::move(cible));
    }
    // Delivers the change to the subscriber, if it still listens.
    void annoncer(EvenementSession evenement) {
        if (auto cible = abonne.lock()) (*cible)(evenement);
    }

    std::optional<bool> ecranVerrouille() const override { return verrouille; }
    std::optional<bool> surConsole() const override { return console; }
    std::optional<double> secondesInactivite() const override { return inactivite; }
    std::optional<bool> veilleEcranRetenue() const override { return retenue; }
    std::optional<bool> ecransEnVeille() const override { return std::nullopt; }
    std::optional<bool> sessionActive() const override { return std::nullopt; }
    std::string typeSession() const override { return "x11"; }

private:
    struct Lien : Abonnement {
        explicit Lien(std::shared_ptr<std::function<void(EvenementSession)>> c)
            : cible(std::move(c)) {}
        std::shared_ptr<std::function<void(EvenementSession)>> cible;
    };
    std::weak_ptr<std::function<void(EvenementSession)>> abonne;
};

} // namespace tavi::test
