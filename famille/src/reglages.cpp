#include "reglages.h"

namespace tavi::famille {

using nlohmann::json;

namespace {

template <typename T>
void siPresent(json& sortie, const char* cle, const std::optional<T>& valeur) {
    if (valeur) sortie[cle] = *valeur;
}

template <typename T>
std::optional<T> optionnel(const json& document, const char* cle) {
    auto trouve = document.find(cle);
    if (trouve == document.end() || trouve->is_null()) return std::nullopt;
    return trouve->get<T>();
}

} // namespace

json versJson(const Reglages& r) {
    json sortie = json::object();
    siPresent(sortie, "limite_jour_min", r.limiteJourMin);
    if (r.pause) {
        json pause = {{"fin_ms", r.pause->finMs}};
        siPresent(pause, "titre", r.pause->titre);
        sortie["pause"] = pause;
    }
    siPresent(sortie, "ouvert_jusqu_ms", r.ouvertJusquMs);
    sortie["plages"] = json::array();
    for (const auto& p : r.plages) {
        json plage = {
            {"id", p.id}, {"jours", p.jours}, {"debut_min", p.debutMin}, {"fin_min", p.finMin}};
        siPresent(plage, "familles", p.familles);
        siPresent(plage, "cause", p.cause);
        siPresent(plage, "titre", p.titre);
        sortie["plages"].push_back(plage);
    }
    sortie["limites_applis"] = json::array();
    for (const auto& l : r.limitesApplis)
        sortie["limites_applis"].push_back(
            {{"id", l.id}, {"nom", l.nom}, {"minutes", l.minutes}, {"applis", l.applis}});
    sortie["coupees"] = r.coupees;
    if (r.filtre)
        sortie["filtre"] = {{"actif", r.filtre->actif},
                            {"bloques", r.filtre->bloques},
                            {"autorises", r.filtre->autorises}};
    sortie["rapport_applis"] = r.rapportApplis;
    sortie["historique_sites"] = r.historiqueSites;
    sortie["reaction_voile"] = r.reactionVoile;
    return sortie;
}

Reglages reglagesDepuisJson(const json& d) {
    Reglages r;
    r.limiteJourMin = optionnel<double>(d, "limite_jour_min");
    if (auto pause = d.find("pause"); pause != d.end() && pause->is_object())
        r.pause =
            Pause{pause->at("fin_ms").get<std::int64_t>(), optionnel<std::string>(*pause, "titre")};
    r.ouvertJusquMs = optionnel<std::int64_t>(d, "ouvert_jusqu_ms");
    for (const auto& p : d.value("plages", json::array()))
        r.plages.push_back(PlageHebdo{
            p.at("id").get<int>(), p.at("jours").get<std::set<int>>(), p.at("debut_min").get<int>(),
            p.at("fin_min").get<int>(), optionnel<std::set<std::string>>(p, "familles"),
            optionnel<std::string>(p, "cause"), optionnel<std::string>(p, "titre")});
    for (const auto& l : d.value("limites_applis", json::array()))
        r.limitesApplis.push_back(LimiteAppli{
            l.at("id").get<std::string>(), l.at("nom").get<std::string>(),
            l.at("minutes").get<double>(), l.at("applis").get<std::set<std::string>>()});
    r.coupees = d.value("coupees", std::set<std::string>{});
    if (auto filtre = d.find("filtre"); filtre != d.end() && filtre->is_object())
        r.filtre =
            Filtre{filtre->value("actif", false), filtre->value("bloques", std::set<std::string>{}),
                   filtre->value("autorises", std::set<std::string>{})};
    r.rapportApplis = d.value("rapport_applis", false);
    r.historiqueSites = d.value("historique_sites", false);
    // Settings stored before the parents could choose keep the default.
    r.reactionVoile = d.value("reaction_voile", r.reactionVoile);
    return r;
}

const std::set<std::string>& famillesConnues() {
    static const std::set<std::string> familles = {"jeux",    "reseaux", "videos",
                                                   "musique", "ecole",   "messages"};
    return familles;
}

const std::set<std::string>& reactionsVoile() {
    static const std::set<std::string> reactions = {"signaler", "verrouiller", "fermer_session"};
    return reactions;
}

bool idLimiteValide(const std::string& id) {
    if (id.empty() || id.size() > 40) return false;
    for (char c : id) {
        bool lettre = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        bool chiffre = c >= '0' && c <= '9';
        if (!lettre && !chiffre && c != '-' && c != '.') return false;
    }
    return true;
}

} // namespace tavi::famille
