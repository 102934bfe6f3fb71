// What the guardian's count and enforcement add to a heartbeat, and to `tavi-gardien etat`.
#include "commun/jour.h"
#include "gardien/garde_repos.h"

#include <cmath>

namespace tavi {

namespace {

using nlohmann::json;

// The oldest `n` at most leave with this heartbeat; the rest wait for the next one.
template <class T, class F>
json prendreAuPlus(std::deque<T>& file, std::size_t n, F&& enJson) {
    json liste = json::array();
    while (!file.empty() && liste.size() < n) {
        liste.push_back(enJson(file.front()));
        file.pop_front();
    }
    return liste;
}

std::int64_t entier(const json& objet, const char* nom) {
    const auto it = objet.find(nom);
    return it != objet.end() && it->is_number_integer() ? it->get<std::int64_t>() : -1;
}

// What comes back is older than anything recorded since: it goes in front.
template <class T>
void remettre(std::deque<T>& file, std::deque<T> rendus) {
    file.insert(file.begin(), rendus.begin(), rendus.end());
}

} // namespace

void GardeRepos::completer(uid_t uid, json& membre) {
    const auto it = comptes_.find(uid);
    if (it == comptes_.end()) return;
    Compte& c = it->second;
    const std::string jour = jourLocal(horloge_.maintenantMs());
    membre["jour"] = jour;
    membre["utilise_jour_min"] = std::round(c.etat.secondesDuJour(jour) / 6.0) / 10.0;
    membre["controle"] = c.controle;
    const auto instant = [](std::int64_t ms) { return json(ms); };
    membre["verrous"] = prendreAuPlus(c.verrous, parBattement, instant);
    membre["fins_session"] = prendreAuPlus(c.fins, parBattement, instant);
    membre["voile_absent"] = prendreAuPlus(c.voiles, parBattement, [](const VoileAbsent& v) {
        return json{{"debut_ms", v.debutMs}, {"duree_ms", v.dureeMs}, {"raison", v.raison}};
    });
    // A veil missing for long already is told now, without waiting for its end; its end will
    // tell it again, whole.
    for (const auto& [id, suivi] : c.suivis) {
        const auto duree = maintenant_ - suivi.absentDepuisMs;
        if (suivi.absentDepuisMs >= 0 && duree >= voileAbsentMaxMs &&
            membre["voile_absent"].size() < parBattement)
            membre["voile_absent"].push_back({{"debut_ms", suivi.absentDepuisServeurMs},
                                              {"duree_ms", duree},
                                              {"raison", suivi.raison},
                                              {"en_cours", true}});
    }
}

void GardeRepos::rendre(uid_t uid, const json& membre) {
    const auto it = comptes_.find(uid);
    if (it == comptes_.end() || !membre.is_object()) return;
    Compte& c = it->second;
    const auto instants = [&](const char* nom) {
        std::deque<std::int64_t> liste;
        if (const auto l = membre.find(nom); l != membre.end() && l->is_array())
            for (const auto& v : *l)
                if (v.is_number_integer()) liste.push_back(v.get<std::int64_t>());
        return liste;
    };
    remettre(c.verrous, instants("verrous"));
    remettre(c.fins, instants("fins_session"));
    std::deque<VoileAbsent> voiles;
    if (const auto l = membre.find("voile_absent"); l != membre.end() && l->is_array())
        for (const auto& v : *l)
            if (v.is_object() && !v.value("en_cours", false) && entier(v, "debut_ms") >= 0 &&
                entier(v, "duree_ms") >= 0)
                voiles.push_back({entier(v, "debut_ms"), entier(v, "duree_ms"),
                                  v.value("raison", std::string())});
    remettre(c.voiles, std::move(voiles));
    borner(c);
}

json GardeRepos::etat() const {
    json comptes = json::array();
    const std::string jour = jourLocal(horloge_.maintenantMs());
    for (const auto& [uid, c] : comptes_) {
        json sessions = json::array();
        for (const auto& [id, suivi] : c.suivis) {
            json s = {{"id", id}, {"voile", nullptr}, {"inactivite_s", nullptr}};
            if (!suivi.voile.empty()) s["voile"] = suivi.voile;
            if (suivi.inactiviteS) s["inactivite_s"] = std::floor(*suivi.inactiviteS);
            if (suivi.absentDepuisMs >= 0) s["voile_absent_depuis_ms"] = suivi.absentDepuisServeurMs;
            if (suivi.avisDepuisMs >= 0) s["fermeture_annoncee"] = true;
            sessions.push_back(std::move(s));
        }
        comptes.push_back({{"uid", uid},
                           {"usage", {{"jour", jour}, {"secondes", std::floor(c.etat.secondesDuJour(jour))}}},
                           {"repos", c.repos},
                           {"reaction", c.etat.reaction()},
                           {"controle", c.controle},
                           {"verrous_heure", c.verrousHeure.size()},
                           {"sessions", std::move(sessions)}});
    }
    return comptes;
}

} // namespace tavi
