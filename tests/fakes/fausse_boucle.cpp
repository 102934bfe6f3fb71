#include "fausse_boucle.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace tavi {

namespace {

class FausseSurveillance : public Abonnement {
public:
    explicit FausseSurveillance(std::shared_ptr<bool> drapeau) : active(std::move(drapeau)) {}
    ~FausseSurveillance() override { *active = false; }

private:
    std::shared_ptr<bool> active;
};

class FausseMinuterie : public Minuterie {
public:
    explicit FausseMinuterie(std::shared_ptr<bool> drapeau) : active(std::move(drapeau)) {}
    ~FausseMinuterie() override { *active = false; }

private:
    std::shared_ptr<bool> active;
};

} // namespace

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

std::unique_ptr<Abonnement> FausseBoucle::surveiller(int descripteur, Tache tache) {
    auto active = std::make_shared<bool>(true);
    surveillances.emplace(descripteur, std::make_pair(active, std::move(tache)));
    return std::make_unique<FausseSurveillance>(active);
}

void FausseBoucle::signaler(int descripteur) {
    std::vector<Tache> aLancer;
    for (auto it = surveillances.begin(); it != surveillances.end();) {
        if (!*it->second.first) {
            it = surveillances.erase(it);
            continue;
        }
        if (it->first == descripteur) aLancer.push_back(it->second.second);
        ++it;
    }
    for (auto& tache : aLancer)
        tache();
}

void FausseBoucle::poster(Tache tache) {
    postes.push_back(std::move(tache));
}

void FausseBoucle::enArrierePlan(std::function<Tache()> travail) {
    arrierePlan.push_back(std::move(travail));
}

void FausseBoucle::avancer(std::chrono::milliseconds duree) {
    if (duree.count() < 0) throw std::invalid_argument("avancer: virtual time does not go back");
    const std::int64_t fin = maintenant + duree.count();
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
    std::size_t termines = 0;
    while (!arrierePlan.empty()) {
        auto travail = std::move(arrierePlan.front());
        arrierePlan.pop_front();
        ++termines;
        if (Tache suite = travail()) poster(std::move(suite));
        executerPostes();
    }
    return termines;
}

void FausseBoucle::executerPostes() {
    for (;;) {
        std::deque<Tache> lot;
        lot.swap(postes);
        if (lot.empty()) return;
        for (auto& tache : lot)
            tache();
    }
}

void FausseBoucle::planifier(std::int64_t dueMs, Echeance echeance) {
    echeancier.emplace(std::pair{dueMs, rang++}, std::move(echeance));
}

void FausseBoucle::allerA(std::int64_t instantMs) {
    const std::int64_t ecoule = instantMs - maintenant;
    if (ecoule <= 0) return;
    maintenant = instantMs;
    if (quandLeTempsPasse) quandLeTempsPasse(ecoule);
}

} // namespace tavi
