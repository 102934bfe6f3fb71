#pragma once

#include "platform/abonnement.h"
#include "platform/application.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tavi {

// The desktop's applications: which one is in front, which run, hiding one.
//
// Main thread only; answers come from memory or a quick local round trip to the display
// server, cheap enough for every tick.
class Bureau {
public:
    virtual ~Bureau() = default;

    // The application whose window has the focus; absent when none has, or when it cannot be
    // known (see `premierPlanObservable`).
    virtual std::optional<Application> applicationAuPremierPlan() const = 0;
    // Every application with a window, each once.
    virtual std::vector<Application> applicationsOuvertes() const = 0;
    // Hides every window of the application (the child brings it back by hand).
    virtual void masquer(const Application& application) = 0;
    // This process.
    virtual std::int64_t notrePid() const = 0;
    // Calls `quand` on the main thread whenever another application comes to the front,
    // until the handle is destroyed.
    [[nodiscard]] virtual std::unique_ptr<Abonnement>
    observerActivation(std::function<void(const Application&)> quand) = 0;

    // False where the front application cannot be known at all (a Wayland session, whose
    // compositor tells no one): usage is then counted without a per-application share.
    virtual bool premierPlanObservable() const = 0;
};

} // namespace tavi
