#pragma once

#include "platform/abonnement.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace tavi {

// A repeating timer; it stops when this handle is destroyed, which must happen on the main
// thread (it may happen inside the timer's own task).
class Minuterie {
public:
    virtual ~Minuterie() = default;
};

// The main loop. Engine, counter and interface state live on the main thread and take no
// locks: everything that happens elsewhere comes back through `poster`. Every member is called
// on the main thread, but `poster`, which any thread may call.
class Boucle {
public:
    using Tache = std::function<void()>;
    virtual ~Boucle() = default;

    // Calls `tache` on the main thread every `periode` until the handle is destroyed.
    [[nodiscard]] virtual std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds periode,
                                                             Tache tache) = 0;
    // Calls `tache` once on the main thread after `delai`.
    virtual void plusTard(std::chrono::milliseconds delai, Tache tache) = 0;
    // Calls `tache` on the main thread whenever `descripteur` has data to read or is closed,
    // until the handle is destroyed. The descriptor stays the caller's to close, after the
    // handle.
    [[nodiscard]] virtual std::unique_ptr<Abonnement> surveiller(int descripteur, Tache tache) = 0;
    // Queues `tache` for the main thread. Safe from any thread.
    virtual void poster(Tache tache) = 0;
    // Runs `travail` on the background pool (several may run at once), then runs the
    // continuation it returns on the main thread; when `travail` throws, `echec` runs there
    // instead, with what the exception said, so whoever waits for the work always hears back.
    // Both are released on the main thread, so their captures may hold main-thread objects;
    // once the loop is gone, none runs again and whatever is still in flight is released where
    // it stands.
    virtual void enArrierePlan(std::function<Tache()> travail,
                               std::function<void(const std::string&)> echec) = 0;

    // `travail` off the main thread, then `suite` with its result on the main thread, or
    // `echec` with the reason when it threw.
    template <class T>
    void executer(std::function<T()> travail, std::function<void(T)> suite,
                  std::function<void(const std::string&)> echec) {
        enArrierePlan(
            [travail = std::move(travail), suite = std::move(suite)]() mutable -> Tache {
                auto resultat = std::make_shared<T>(travail());
                return [suite = std::move(suite), resultat] { suite(std::move(*resultat)); };
            },
            std::move(echec));
    }
};

} // namespace tavi
