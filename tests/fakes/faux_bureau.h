#pragma once

#include "platform/bureau.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace tavi::test {

// A desktop the test arranges: the application in front, those running, and the agent's own
// pid. Records what was hidden; `activer` brings an application to the front and tells the
// subscriber, as a window manager would.
class FauxBureau : public Bureau {
public:
    std::optional<Application> devant;
    std::vector<Application> ouvertes;
    std::vector<Application> masquees;
    std::int64_t pid = 4242;

    // Runs `application` (once) and puts it in front.
    void activer(const Application& application) {
        if (std::find(ouvertes.begin(), ouvertes.end(), application) == ouvertes.end())
            ouvertes.push_back(application);
        devant = application;
        if (auto cible = abonne.lock()) (*cible)(application);
    }

    std::optional<Application> applicationAuPremierPlan() const override { return devant; }
    std::vector<Application> applicationsOuvertes() const override { return ouvertes; }
    // A hidden application leaves the front, as its windows go.
    void masquer(const Application& application) override {
        masquees.push_back(application);
        if (devant == application) devant.reset();
    }
    std::int64_t notrePid() const override { return pid; }
    std::unique_ptr<Abonnement>
    observerActivation(std::function<void(const Application&)> quand) override {
        auto cible = std::make_shared<std::function<void(const Application&)>>(std::move(quand));
        abonne = cible;
        return std::make_unique<Lien>(std::move(cible));
    }
    bool premierPlanObservable() const override { return true; }

private:
    struct Lien : Abonnement {
        explicit Lien(std::shared_ptr<std::function<void(const Application&)>> c)
            : cible(std::move(c)) {}
        std::shared_ptr<std::function<void(const Application&)>> cible;
    };
    std::weak_ptr<std::function<void(const Application&)>> abonne;
};

} // namespace tavi::test
