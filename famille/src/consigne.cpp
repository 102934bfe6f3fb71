#include "consigne.h"

#include "semaine.h"

#include <algorithm>
#include <cmath>

namespace tavi::famille {

using nlohmann::json;

namespace {

// Minutes go out with one decimal, like the agent's own figures: 0.1 + 0.2 must not travel
// as 0.30000000000000004.
double dixieme(double minutes) {
    return std::round(minutes * 10) / 10;
}

json regleDePlage(const PlageHebdo& plage) {
    if (!plage.familles) return {{"mode", "tout"}};
    return {{"mode", "familles"}, {"familles", *plage.familles}};
}

json programme(const Reglages& r, std::int64_t maintenantMs, const date::time_zone& zone) {
    json plages = json::array();
    for (const auto& occurrence :
         plagesConcretes(r.plages, maintenantMs, maintenantMs + horizonProgrammeMs, zone)) {
        json plage = {{"debut_ms", occurrence.debutMs},
                      {"fin_ms", occurrence.finMs},
                      {"regle", regleDePlage(*occurrence.source)}};
        if (occurrence.source->cause) plage["cause"] = *occurrence.source->cause;
        if (occurrence.source->titre) plage["titre"] = *occurrence.source->titre;
        plages.push_back(plage);
    }
    return plages;
}

} // namespace

json consigne(const Enfant& enfant, const UsageDuJour& usage, std::int64_t maintenantMs,
              const date::time_zone& zone) {
    const Reglages& r = enfant.reglages;
    json c = json::object();
    c["heure_serveur_ms"] = maintenantMs;
    c["prenom"] = enfant.prenom;
    c["tirelire_min"] = dixieme(enfant.tirelireMin);

    // A pause ends by itself: past its end it is no longer sent at all.
    bool pause = r.pause && r.pause->finMs > maintenantMs;
    c["protege_maintenant"] = pause;
    if (pause) {
        c["fin_ms"] = r.pause->finMs;
        c["cause"] = "pause_famille";
        if (r.pause->titre) c["titre"] = *r.pause->titre;
        c["regle"] = {{"mode", "tout"}};
    }
    if (r.ouvertJusquMs && *r.ouvertJusquMs > maintenantMs) c["ouvert_jusqu_ms"] = *r.ouvertJusquMs;

    c["programme"] = programme(r, maintenantMs, zone);

    if (r.limiteJourMin) {
        c["limite_jour_min"] = *r.limiteJourMin;
        c["reste_jour_min"] =
            std::max(0.0, dixieme(*r.limiteJourMin - usage.utiliseMin + usage.ajoutesMin));
    }

    json limites = json::array();
    json autres = json::object();
    for (const auto& limite : r.limitesApplis) {
        limites.push_back({{"id", limite.id},
                           {"nom", limite.nom},
                           {"minutes", limite.minutes},
                           {"applis", limite.applis}});
        double ailleurs = 0;
        for (const auto& appli : limite.applis)
            if (auto trouvee = usage.autresParAppli.find(appli);
                trouvee != usage.autresParAppli.end())
                ailleurs += trouvee->second;
        autres[limite.id] = dixieme(ailleurs);
    }
    c["mac"] = {{"limites", limites}, {"coupees", r.coupees}};
    c["limites_autres"] = autres;

    if (r.filtre)
        c["filtre_web"] = {{"actif", r.filtre->actif},
                           {"domaines_bloques", r.filtre->bloques},
                           {"domaines_autorises", r.filtre->autorises}};
    c["rapport_applis"] = {{"actif", r.rapportApplis}};
    c["historique_sites"] = {{"actif", r.historiqueSites}};
    c["reaction_voile"] = r.reactionVoile;
    return c;
}

} // namespace tavi::famille
