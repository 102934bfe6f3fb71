#include "engine/trousseau_serie.h"

#include "server/stockage.h"

#include <utility>

namespace tavi {

TrousseauSerie::TrousseauSerie(Boucle& b, Coffre& c) : boucle(b), coffre(c) {}

void TrousseauSerie::lire(std::function<void(std::optional<std::string>)> suite) {
    ajouter([&coffre = coffre, suite = std::move(suite)]() mutable -> Boucle::Tache {
        auto jeton = Trousseau::lire(coffre);
        return [suite = std::move(suite), jeton = std::move(jeton)] { suite(jeton); };
    });
}

void TrousseauSerie::ecrire(std::string jeton, std::function<void(bool)> suite) {
    ajouter([&coffre = coffre, jeton = std::move(jeton),
             suite = std::move(suite)]() mutable -> Boucle::Tache {
        // The store gives up silently (a locked keyring): only reading back tells.
        Trousseau::ecrire(coffre, jeton);
        const bool range = Trousseau::lire(coffre) == jeton;
        return [suite = std::move(suite), range] { suite(range); };
    });
}

void TrousseauSerie::effacer() {
    ajouter([&coffre = coffre]() -> Boucle::Tache {
        coffre.supprimer(Trousseau::service, Trousseau::compte);
        return [] {};
    });
}

void TrousseauSerie::ajouter(std::function<Boucle::Tache()> travail) {
    file.push_back(std::move(travail));
    if (!enCours) suivante();
}

void TrousseauSerie::suivante() {
    if (file.empty()) {
        enCours = false;
        return;
    }
    enCours = true;
    auto travail = std::move(file.front());
    file.pop_front();
    std::weak_ptr<TrousseauSerie*> faible = vivant;
    boucle.enArrierePlan([travail = std::move(travail), faible]() mutable -> Boucle::Tache {
        Boucle::Tache suite = travail();
        return [suite = std::move(suite), faible] {
            auto moi = faible.lock();
            if (!moi) return;
            suite();
            (*moi)->suivante();
        };
    });
}

} // namespace tavi
