// What the supervision hands out: the member "gardien" of a heartbeat and the state for
// `tavi-gardien etat`.
#include "gardien/processus.h"
#include "gardien/surveillance.h"

#include <algorithm>

namespace tavi {

namespace {

bool finConnue(const std::string& fin) {
    return fin == "relance" || fin == "retour" || fin == "arret" || fin == "session_finie";
}

std::int64_t entier(const nlohmann::json& objet, const char* nom) {
    const auto it = objet.find(nom);
    return it != objet.end() && it->is_number_integer() ? it->get<std::int64_t>() : -1;
}

} // namespace

nlohmann::json Surveillance::prendre(uid_t uid, pid_t pid) {
    nlohmann::json m = {{"agent", estAgent(uid, pid)}, {"pid", pid}};
    const auto executable = Processus::executable(pid);
    m["executable"] = executable ? nlohmann::json(*executable) : nlohmann::json(nullptr);
    const auto e = Processus::etat(pid);
    m["lance_ms"] = e ? nlohmann::json(Processus::debutMs(e->debutTicks)) : nlohmann::json(nullptr);
    m["demarrage"] = demarrage;
    m["absences"] = nlohmann::json::array();
    m["relances"] = nlohmann::json::array();
    const auto it = comptes.find(uid);
    if (it == comptes.end()) return m;
    Compte& c = it->second;
    // A heartbeat of the agent is a sign of life too, and closes its absence before it is taken.
    if (m["agent"].get<bool>()) vivant(c);

    // The newest go; older ones past the bound are only counted.
    const std::size_t perduesA = c.absences.size() - std::min(c.absences.size(), parBattement);
    const std::size_t perduesR = c.relances.size() - std::min(c.relances.size(), parBattement);
    for (std::size_t i = perduesA; i < c.absences.size(); ++i)
        m["absences"].push_back({{"debut_ms", c.absences[i].debutMs},
                                 {"duree_ms", c.absences[i].dureeMs},
                                 {"fin", c.absences[i].fin}});
    for (std::size_t i = perduesR; i < c.relances.size(); ++i)
        m["relances"].push_back(c.relances[i]);
    const auto absencesPerdues = c.absencesPerdues + static_cast<std::int64_t>(perduesA);
    const auto relancesPerdues = c.relancesPerdues + static_cast<std::int64_t>(perduesR);
    if (absencesPerdues > 0) m["absences_perdues"] = absencesPerdues;
    if (relancesPerdues > 0) m["relances_perdues"] = relancesPerdues;
    c.absences.clear();
    c.relances.clear();
    c.absencesPerdues = c.relancesPerdues = 0;
    return m;
}

void Surveillance::rendre(uid_t uid, const nlohmann::json& membre) {
    if (!membre.is_object()) return;
    Compte& c = comptes[uid];
    // What comes back is older than anything recorded since: it goes in front.
    std::deque<Absence> absences;
    if (const auto it = membre.find("absences"); it != membre.end() && it->is_array())
        for (const auto& a : *it) {
            const auto fin = a.is_object() ? a.value("fin", std::string()) : std::string();
            if (finConnue(fin) && entier(a, "debut_ms") >= 0 && entier(a, "duree_ms") >= 0)
                absences.push_back({entier(a, "debut_ms"), entier(a, "duree_ms"), fin});
        }
    c.absences.insert(c.absences.begin(), absences.begin(), absences.end());
    std::deque<std::int64_t> relances;
    if (const auto it = membre.find("relances"); it != membre.end() && it->is_array())
        for (const auto& r : *it)
            if (r.is_number_integer()) relances.push_back(r.get<std::int64_t>());
    c.relances.insert(c.relances.begin(), relances.begin(), relances.end());
    c.absencesPerdues += std::max<std::int64_t>(0, entier(membre, "absences_perdues"));
    c.relancesPerdues += std::max<std::int64_t>(0, entier(membre, "relances_perdues"));
    garder(c);
}

nlohmann::json Surveillance::etat() const {
    nlohmann::json comptesJson = nlohmann::json::array();
    const auto maintenant = ports.horloges.monotoniqueEveilleMs();
    for (const auto& [uid, c] : comptes) {
        nlohmann::json j = {{"uid", uid},
                            {"session", nullptr},
                            {"agent", nullptr},
                            {"absence_depuis_ms", nullptr},
                            {"absences", c.absences.size()},
                            {"relances", c.relances.size()}};
        if (c.session)
            j["session"] = {{"id", c.session->id},
                            {"type", c.session->type},
                            {"etat", c.session->etat},
                            {"siege", c.session->siege},
                            {"affichage", c.session->affichage}};
        if (c.agent)
            j["agent"] = {{"pid", c.agent->pid},
                          {"lance_ms", c.agent->lanceMs},
                          {"presence", c.agent->presence},
                          {"silence_ms", maintenant - c.agent->dernierSigneMs}};
        else if (c.session)
            j["relance_dans_ms"] = std::max<std::int64_t>(0, c.prochainLancementMs - maintenant);
        if (c.absence) j["absence_depuis_ms"] = c.absence->debutMs;
        comptesJson.push_back(std::move(j));
    }
    return {{"logind", logindRepond}, {"comptes", std::move(comptesJson)}};
}

} // namespace tavi
