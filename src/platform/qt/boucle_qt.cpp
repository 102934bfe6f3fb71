#include "platform/qt/boucle_qt.h"

#include "commun/journal.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QThreadPool>
#include <QTimer>
#include <algorithm>
#include <deque>
#include <exception>
#include <limits>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavi {

// What background threads keep of the loop: a way back to the main thread that the loop cuts
// when it goes, so that work finishing later finds no one to resume.
//
// The tasks wait in our own queue rather than in Qt's events: a functor posted with
// invokeMethod may be released by the posting thread (Qt drops its own reference after the
// event is queued, sometimes after the main thread ran it), and a task's captures must die on
// the main thread. The event only wakes the main thread.
struct BoucleQt::Lien {
    std::mutex verrou;
    // Lives on the main thread; receives the wake-ups. Null once the loop is gone.
    QObject* contexte = nullptr;
    std::deque<Tache> file;

    void poster(Tache tache) {
        std::lock_guard garde(verrou);
        if (!contexte) return;
        file.push_back(std::move(tache));
        // One event a task, so that tasks interleave with Qt's own events as they were
        // posted. Posting is safe from any thread; holding the lock keeps `contexte` alive
        // while we do. The Lien outlives `contexte`, whose deletion drops the event.
        QMetaObject::invokeMethod(
            contexte, [this] { suivante(); }, Qt::QueuedConnection);
    }

    // Main thread: runs the oldest task; the task and its captures end here.
    void suivante() {
        Tache tache;
        {
            std::lock_guard garde(verrou);
            if (file.empty()) return;
            tache = std::move(file.front());
            file.pop_front();
        }
        tache();
    }
};

namespace {

constexpr auto plusLongDelai = std::chrono::milliseconds(std::numeric_limits<int>::max());

class MinuterieQt : public Minuterie {
public:
    explicit MinuterieQt(QTimer* leMinuteur) : minuteur(leMinuteur) {}
    ~MinuterieQt() override {
        // The loop may be gone already (it deletes its timers), and this may run inside the
        // timer's own task: stop at once, free later.
        if (minuteur) {
            minuteur->stop();
            minuteur->deleteLater();
        }
    }

private:
    QPointer<QTimer> minuteur;
};

class SurveillanceQt : public Abonnement {
public:
    explicit SurveillanceQt(QSocketNotifier* leGuetteur) : guetteur(leGuetteur) {}
    ~SurveillanceQt() override {
        // As for a timer: this may run inside the notifier's own task.
        if (guetteur) {
            guetteur->setEnabled(false);
            guetteur->deleteLater();
        }
    }

private:
    QPointer<QSocketNotifier> guetteur;
};

} // namespace

BoucleQt::BoucleQt(std::chrono::milliseconds attente)
    : lien(std::make_shared<Lien>()), pool(std::make_unique<QThreadPool>()),
      attenteALaFin(attente) {
    if (!QCoreApplication::instance())
        throw std::logic_error("BoucleQt needs a QCoreApplication made before it");
    lien->contexte = new QObject;
    pool->setMaxThreadCount(filsArrierePlan);
}

BoucleQt::~BoucleQt() {
    QObject* contexte = nullptr;
    {
        std::lock_guard garde(lien->verrou);
        std::swap(contexte, lien->contexte);
    }
    pool->clear();
    if (!pool->waitForDone(static_cast<int>(attenteALaFin.count()))) {
        // An exchange hung on a dead server would hold the end of the process for up to a
        // minute. Its thread is left to finish on its own: it finds no loop to resume, and the
        // pool it runs in must outlive it, so the pool is deliberately not destroyed.
        static_cast<void>(pool.release());
    }
    // Takes with it the timers and the wake-up still queued for the main thread.
    delete contexte;
    std::deque<Tache> restants;
    {
        std::lock_guard garde(lien->verrou);
        restants.swap(lien->file);
    }
}

std::unique_ptr<Minuterie> BoucleQt::repeter(std::chrono::milliseconds periode, Tache tache) {
    if (periode < std::chrono::milliseconds(1) || periode > plusLongDelai)
        throw std::invalid_argument("repeter: the period must be between 1 ms and 24 days, not " +
                                    std::to_string(periode.count()) + " ms");
    auto* minuteur = new QTimer(lien->contexte);
    // A coarse timer may drift by 5 %: that is 50 ms on a one-second tick, and it lets the
    // system group wake-ups.
    minuteur->setTimerType(Qt::CoarseTimer);
    minuteur->setInterval(periode);
    QObject::connect(minuteur, &QTimer::timeout, lien->contexte, std::move(tache));
    minuteur->start();
    return std::make_unique<MinuterieQt>(minuteur);
}

void BoucleQt::plusTard(std::chrono::milliseconds delai, Tache tache) {
    delai = std::clamp(delai, std::chrono::milliseconds(0), plusLongDelai);
    QTimer::singleShot(delai, lien->contexte, std::move(tache));
}

std::unique_ptr<Abonnement> BoucleQt::surveiller(int descripteur, Tache tache) {
    auto* guetteur = new QSocketNotifier(descripteur, QSocketNotifier::Read, lien->contexte);
    QObject::connect(guetteur, &QSocketNotifier::activated, guetteur,
                     [tache = std::move(tache)] { tache(); });
    return std::make_unique<SurveillanceQt>(guetteur);
}

void BoucleQt::poster(Tache tache) {
    lien->poster(std::move(tache));
}

void BoucleQt::enArrierePlan(std::function<Tache()> travail,
                             std::function<void(const std::string&)> echec) {
    pool->start([lien = lien, travail = std::move(travail), echec = std::move(echec)]() mutable {
        Tache suite;
        std::optional<std::string> raison;
        try {
            suite = travail();
        } catch (const std::exception& e) {
            raison = e.what();
        } catch (...) {
            raison = "unknown exception";
        }
        if (raison) journaliser("background work ended on an exception: " + *raison);
        // The work's captures often hold main-thread state (the last reference to an engine
        // object, the caller's continuation): they are released on the main thread too, after
        // the continuation, never here.
        lien->poster([suite = std::move(suite), echec = std::move(echec),
                      raison = std::move(raison), fini = std::move(travail)] {
            if (raison) {
                if (echec) echec(*raison);
            } else if (suite) {
                suite();
            }
        });
    });
}

int BoucleQt::executer() {
    return QCoreApplication::exec();
}

void BoucleQt::quitter(int statut) {
    // Through the queue: an exit asked before the loop runs would otherwise be lost, and
    // QCoreApplication::exit must be called on the main thread.
    lien->poster([statut] { QCoreApplication::exit(statut); });
}

} // namespace tavi
