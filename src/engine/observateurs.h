#pragma once

#include "platform/abonnement.h"

#include <functional>
#include <map>
#include <memory>

namespace tavi {

// The callbacks of those who show a state (the veil on each screen, the tray, the printed state
// line): each is called at every change until its handle is destroyed. A handle may be
// destroyed during a call, its own or another's, and may outlive the list.
//
// Main thread only.
class Observateurs {
public:
    [[nodiscard]] std::unique_ptr<Abonnement> ajouter(std::function<void()> quand) {
        const int cle = etat_->prochain++;
        etat_->rappels.emplace(cle, std::make_shared<std::function<void()>>(std::move(quand)));
        return std::make_unique<Inscription>(etat_, cle);
    }

    void signaler() const {
        // A copy, so that a callback that subscribes or unsubscribes does not pull the list from
        // under the loop; one unsubscribed meanwhile is emptied, and skipped.
        const auto rappels = etat_->rappels;
        for (const auto& [cle, rappel] : rappels)
            if (*rappel) (*rappel)();
    }

private:
    struct Etat {
        std::map<int, std::shared_ptr<std::function<void()>>> rappels;
        int prochain = 0;
    };
    class Inscription : public Abonnement {
    public:
        Inscription(std::weak_ptr<Etat> etat, int cle) : etat_(std::move(etat)), cle_(cle) {}
        ~Inscription() override {
            auto etat = etat_.lock();
            if (!etat) return;
            if (auto it = etat->rappels.find(cle_); it != etat->rappels.end()) {
                *it->second = nullptr;
                etat->rappels.erase(it);
            }
        }

    private:
        std::weak_ptr<Etat> etat_;
        int cle_;
    };

    std::shared_ptr<Etat> etat_ = std::make_shared<Etat>();
};

} // namespace tavi
