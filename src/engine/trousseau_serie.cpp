#include "engine/trousseau_serie.h"

#include "server/stockage.h"

#include <utility>

namespace tavi {

TrousseauSerie::TrousseauSerie(Boucle& b, Coffre& c) : boucle(b), coffre(c) {}

void TrousseauSerie::lire(std::function<void(std::optional<std::string>)> suite) {
    auto partagee = std::make_shared<decltype(suite)>(std::move(suite));
    ajouter({[&coffre = coffre, partagee]() -> Boucle::Tache {
                 auto jeton = Trousseau::lire(coffre);
                 return [partagee, jeton = std::move(jeton)] { (*partagee)(jeton); };
             },
             [partagee] { (*partagee)(std::nullopt); }});
}

void TrousseauSerie::ecrire(std::string jeton, std::function<void(bool)> suite) {
    auto partagee = std::make_shared<decltype(suite)>(std::move(suite));
    ajouter({[&coffre = coffre, jeton = std::move(jeton), partagee]() -> Boucle::Tache {
                 // The store gives up silently (a locked keyring): only reading back tells.
                 Trousseau::ecrire(coffre, jeton);
                 const bool range = Trousseau::lire(coffre) == jeton;
                 return [partagee, range] { (*partagee)(range); };
             },
             [partagee] { (*partagee)(false); }});
}

void TrousseauSerie::effacer() {
    ajouter({[&coffre = coffre]() -> Boucle::Tache {
                 coffre.supprimer(Trousseau::service, Trousseau::compte);
                 return [] {};
             },
             [] {}});
}

void TrousseauSerie::ajouter(Operation operation) {
    file.push_back(std::move(operation));
    if (!enCours) suivante();
}

void TrousseauSerie::suivante() {
    if (file.empty()) {
        enCours = false;
        return;
    }
    enCours = true;
    Operation operation = std::move(file.front());
    file.pop_front();
    std::weak_ptr<TrousseauSerie*> faible = vivant;
    // Whatever the store did, the next operation goes: a flag left set would hold the token
    // away from every heartbeat for good.
    auto puisLaSuivante = [faible](const Boucle::Tache& action) {
        auto moi = faible.lock();
        if (!moi) return;
        action();
        (*moi)->suivante();
    };
    boucle.enArrierePlan(
        [travail = std::move(operation.travail), puisLaSuivante]() mutable -> Boucle::Tache {
            return [suite = travail(), puisLaSuivante] { puisLaSuivante(suite); };
        },
        [siEchec = std::move(operation.siEchec), puisLaSuivante](const std::string&) {
            puisLaSuivante(siEchec);
        });
}

} // namespace tavi
