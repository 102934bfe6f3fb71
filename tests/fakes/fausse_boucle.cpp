#include "fausse_boucle.h"

#include <chrono>
#include <exception>
#include <stdexcept>
#include <string>

namespace tavi::test {

namespace {

// Cancels its timer when it goes.
struct FausseMinuterie : Minuterie {
    explicit FausseMinuterie(std::shared_ptr<bool> drapeau) : active(std::move(drapeau)) {}
    ~FausseMinuterie() override { *active = false; }
    std::shared_ptr<bool> active;
};

} // namespace

FausseBoucle::~FausseBoucle() {
    for (auto& fil : fils)
        fil.join();
}

std::unique_ptr<Minuterie> FausseBoucle::repeter(std::chrono::milliseconds periode, Tache tache) {
    if (periode < std::chrono::milliseconds(1))
        throw std::invalid_argument("repeter: the period must be at least 1 ms, not " +
                                    std::to_string(periode.count()) + " ms");
    auto active = std::make_shared<bool>(true);
    planifier(maintenant + periode.count(), {std::move(tache), periode.count(), active});
    return std::make_unique<FausseMinuterie>(active);
}

void FausseBoucle::plusTard(std::chrono::milliseconds delai, Tache tache) {
    // As in Qt, no delay is a post: it runs in turn with the tasks posted around it.
    if (delai.count() <= 0) return poster(std::move(tache));
    planifier(maintenant + delai.count(), {std::move(tache), 0, {}});
}

void FausseBoucle::poster(Tache tache) {
    std::lock_guard verrou(mutex);
    postes.push_back(std::move(tache));
    change.notify_all();
}

void FausseBoucle::enArrierePlan(std::function<Tache()> travail,
                                 std::function<void(const std::string&)> echec) {
    {
        std::lock_guard verrou(mutex);
        ++enCours;
    }
    fils.emplace_back([this, travail = std::move(travail), echec = std::move(echec)]() mutable {
        Tache suite;
        std::optional<std::string> raison;
        try {
            suite = travail();
        } catch (const std::exception& e) {
            raison = e.what();
        } catch (...) {
            raison = "unknown exception";
        }
        std::lock_guard verrou(mutex);
        // The work goes with what it gave back: both are released on the test's thread.
        retours.push_back([travail = std::move(travail), suite = std::move(suite),
                           echec = std::move(echec), raison = std::move(raison)] {
            if (raison) {
                if (echec) echec(*raison);
            } else if (suite) {
                suite();
            }
        });
        --enCours;
        change.notify_all();
    });
}

void FausseBoucle::avancer(std::chrono::milliseconds duree) {
    if (duree.count() < 0) throw std::invalid_argument("avancer: virtual time does not go back");
    const std::int64_t fin = maintenant + duree.count();
    const auto allerA = [this](std::int64_t instantMs) {
        const std::int64_t ecoule = instantMs - maintenant;
        if (ecoule <= 0) return;
        maintenant = instantMs;
        if (quandLeTempsPasse) quandLeTempsPasse(ecoule);
    };
    executerPostes();
    while (!echeancier.empty() && echeancier.begin()->first.first <= fin) {
        auto noeud = echeancier.extract(echeancier.begin());
        Echeance& echeance = noeud.mapped();
        if (echeance.active && !*echeance.active) continue;
        allerA(noeud.key().first);
        // Rescheduled before it runs, so that a timer whose task destroys its own handle is
        // found inactive next time rather than lost now.
        if (echeance.periodeMs > 0) planifier(maintenant + echeance.periodeMs, echeance);
        echeance.tache();
        executerPostes();
    }
    allerA(fin);
    executerPostes();
}

std::size_t FausseBoucle::terminerArrierePlan() {
    for (std::size_t arrives = 0;;) {
        executerPostes();
        // Polled: a fake that starts holding a work does not wake this loop.
        const auto limite = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        std::unique_lock verrou(mutex);
        while (enCours > retenus()) {
            if (std::chrono::steady_clock::now() > limite)
                throw std::runtime_error("terminerArrierePlan: background work still runs");
            change.wait_for(verrou, std::chrono::milliseconds(1));
        }
        auto lot = std::exchange(retours, {});
        if (lot.empty() && postes.empty()) {
            // Nothing runs: the threads have ended or are about to.
            if (enCours == 0) {
                for (auto& fil : fils)
                    fil.join();
                fils.clear();
            }
            return arrives;
        }
        verrou.unlock();
        arrives += lot.size();
        for (auto& tache : lot)
            tache();
    }
}

bool FausseBoucle::attendre(const std::function<bool()>& condition) {
    const auto limite = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (;;) {
        if (auto lot = prendre(retours))
            for (auto& tache : *lot)
                tache();
        executerPostes();
        if (condition()) return true;
        std::unique_lock verrou(mutex);
        if (!change.wait_until(verrou, limite, [&] { return !postes.empty() || !retours.empty(); }))
            return condition();
    }
}

void FausseBoucle::planifier(std::int64_t dueMs, Echeance echeance) {
    echeancier.emplace(std::pair{dueMs, rang++}, std::move(echeance));
}

void FausseBoucle::executerPostes() {
    while (auto lot = prendre(postes))
        for (auto& tache : *lot)
            tache();
}

std::optional<std::deque<Boucle::Tache>> FausseBoucle::prendre(std::deque<Tache>& file) {
    std::lock_guard verrou(mutex);
    if (file.empty()) return std::nullopt;
    return std::exchange(file, {});
}

} // namespace tavi::test
