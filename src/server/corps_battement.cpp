#include "server/corps_battement.h"

#include <cmath>

namespace tavi {

double minutesUneDecimale(double secondes) {
    return std::round(secondes / 60 * 10) / 10;
}

nlohmann::json clesFixesBattement(const Systeme& systeme, const std::string& version,
                                  const EtatAgent& etat) {
    return {{"actif", etat.actif},
            {"incertain", etat.incertain},
            {"plateforme", systeme.plateforme()},
            {"version", version},
            {"systeme", systeme.description()},
            // The login agent's state is sent twice on purpose: the server reads it under both.
            {"autorisations",
             {{"ouverture_session", etat.actif}, {"automatisation", etat.automatisation}}},
            {"utilise_jour_min", minutesUneDecimale(etat.secondesDuJour)}};
}

} // namespace tavi
