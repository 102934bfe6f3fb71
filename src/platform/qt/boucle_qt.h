#pragma once

#include "platform/boucle.h"

#include <chrono>
#include <memory>

class QThreadPool;

namespace tavi {

// The main loop on Qt's event loop. A QCoreApplication (or QApplication) must exist before it,
// made on the thread that calls `executer`: that thread is the main thread. Timers, delayed
// work and continuations run there; `poster` may be called from any thread.
class BoucleQt : public Boucle {
public:
    // Enough threads for several exchanges blocked on a slow server (each may take a minute)
    // while disk scans and other exchanges still go on.
    static constexpr int filsArrierePlan = 8;

    // `attenteALaFin`: how long the destructor waits for background work still running before
    // leaving it behind.
    explicit BoucleQt(std::chrono::milliseconds attenteALaFin = std::chrono::seconds(2));
    // No continuation runs once this returns, even of work that finishes later.
    ~BoucleQt() override;
    BoucleQt(const BoucleQt&) = delete;
    BoucleQt& operator=(const BoucleQt&) = delete;

    // A period under 1 ms or over 24 days is refused (std::invalid_argument). The handle must
    // be destroyed on the main thread; it may be destroyed from inside its own task.
    [[nodiscard]] std::unique_ptr<Minuterie> repeter(std::chrono::milliseconds periode,
                                                     Tache tache) override;
    void plusTard(std::chrono::milliseconds delai, Tache tache) override;
    [[nodiscard]] std::unique_ptr<Abonnement> surveiller(int descripteur, Tache tache) override;
    void poster(Tache tache) override;
    // Work that throws is logged, and its `echec` called with the exception's text.
    void enArrierePlan(std::function<Tache()> travail,
                       std::function<void(const std::string&)> echec) override;

    // Runs the loop until `quitter`; returns the status given there.
    int executer();
    // The port's executer<T>(travail, suite), which the one above would hide.
    using Boucle::executer;
    // Ends `executer` with `statut`. Safe from any thread, and before `executer` has started.
    void quitter(int statut);

private:
    struct Lien;
    std::shared_ptr<Lien> lien;
    std::unique_ptr<QThreadPool> pool;
    std::chrono::milliseconds attenteALaFin;
};

} // namespace tavi
