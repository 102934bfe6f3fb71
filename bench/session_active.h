#pragma once

#include "platform/session.h"

namespace tavi::bench {

// A session where the child is at the keyboard: every tick counts.
class SessionActive : public Session {
public:
    std::unique_ptr<Abonnement> observer(std::function<void(EvenementSession)>) override {
        return std::make_unique<Abonnement>();
    }
    std::optional<bool> ecranVerrouille() const override { return false; }
    std::optional<bool> surConsole() const override { return true; }
    std::optional<double> secondesInactivite() const override { return 1.0; }
    std::optional<bool> veilleEcranRetenue() const override { return false; }
    std::optional<bool> ecransEnVeille() const override { return false; }
    std::optional<bool> sessionActive() const override { return true; }
    std::string typeSession() const override { return "x11"; }
};

} // namespace tavi::bench
