#include "server/corps_battement.h"

#include <cmath>

namespace tavi {

double minutesUneDecimale(double secondes) {
    return std::round(secondes / 60 * 10) / 10;
}

void ajouterLancement(nlohmann::json& corps, std::int64_t demarrageId,
                      std::optional<std::int64_t> lanceMs) {
    // The identity is folded to 53 bits, so that a server reading numbers as doubles keeps it.
    if (demarrageId >= 0 && demarrageId < (std::int64_t{1} << 53))
        corps["demarrage_id"] = demarrageId;
    if (lanceMs) corps["agent_lance_ms"] = *lanceMs;
}

nlohmann::json clesFixesBattement(const Systeme& systeme, const std::string& version,
                                  const EtatAgent& etat) {
    nlohmann::json corps = {
        {"actif", etat.actif},
        {"incertain", etat.incertain},
        {"plateforme", systeme.plateforme()},
        {"version", version},
        {"systeme", systeme.description()},
        // The login agent's state is sent twice on purpose: the server reads it under both.
        {"autorisations",
         {{"ouverture_session", etat.actif}, {"automatisation", etat.automatisation}}},
        {"utilise_jour_min", minutesUneDecimale(etat.secondesDuJour)}};
    ajouterLancement(corps, etat.demarrageId, etat.lanceMs);
    return corps;
}

} // namespace tavi
