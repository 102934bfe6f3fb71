#include "depot.h"

namespace tavi::famille {

using nlohmann::json;

// Each absence and each restart is keyed by its instant: a heartbeat that failed on its way is
// sent again with the same ones, and the parents must see them once.
void Depot::noterGardien(const std::string& id, const Battement& b, std::int64_t maintenantMs,
                         VolumesJour& v) {
    if (b.gardienEcarte)
        noterPreuve(id, "gardien_ecarte", {{"raison", *b.gardienEcarte}}, maintenantMs, v);
    Requete avant = base_.requete("SELECT dernier_resume FROM ordinateurs WHERE id = ?");
    avant.avec(id);
    const std::optional<std::string> resume =
        avant.ligne() ? avant.texteOuRien(0) : std::optional<std::string>();
    if (!b.gardien) {
        // The previous message came through the guardian and this one does not: the guardian
        // was removed or stopped relaying, or its token is used elsewhere. Noted once, as the
        // change it is.
        if (!b.gardienEcarte && resume && json::parse(*resume, nullptr, false).contains("gardien"))
            noterPreuve(id, "sans_gardien", json::object(), maintenantMs, v);
        return;
    }
    const TemoignageGardien& g = *b.gardien;
    for (const auto& absence : g.absences)
        noterPreuve(
            id, "absence_agent",
            {{"debut_ms", absence.debutMs}, {"duree_ms", absence.dureeMs}, {"fin", absence.fin}},
            maintenantMs, v, absence.debutMs);
    for (std::int64_t relance : g.relances)
        noterPreuve(id, "relance_agent", {{"lance_ms", relance}}, maintenantMs, v, relance);
    for (std::int64_t verrou : g.verrous)
        noterPreuve(id, "verrou_gardien", {{"instant_ms", verrou}}, maintenantMs, v, verrou);
    for (std::int64_t fin : g.finsSession)
        noterPreuve(id, "fin_session_gardien", {{"instant_ms", fin}}, maintenantMs, v, fin);
    // A missing veil is told while it lasts, then again when it ends: the same one, keyed by
    // its start, only grows.
    for (const auto& voile : g.voileAbsent) {
        const json details = {
            {"debut_ms", voile.debutMs}, {"duree_ms", voile.dureeMs}, {"raison", voile.raison}};
        base_
            .requete("UPDATE evenements SET texte = ? WHERE ordinateur_id = ? AND "
                     "genre = 'voile_absent' AND cle_ms = ? AND "
                     "json_extract(texte, '$.duree_ms') < ?")
            .avec(details.dump(), id, voile.debutMs, voile.dureeMs)
            .executer();
        noterPreuve(id, "voile_absent", details, maintenantMs, v, voile.debutMs);
    }
    // The guardian keeps the latest absences and only counts the older ones.
    if (g.absencesPerdues > 0)
        noterPreuve(id, "absences_perdues", {{"nombre", g.absencesPerdues}}, maintenantMs, v,
                    g.absences.empty() ? std::nullopt : std::optional(g.absences.front().debutMs));
    // A copy the guardian did not start got its heartbeat through: the guardian expected no
    // agent in that session (one logind does not count as graphical, a nested display...).
    // Noted once per copy; the computer's line tells whether the latest heartbeat was one. The
    // first heartbeat of a pairing comes from whatever paired (`tavi rejoindre`), before any
    // agent was started: that one is no copy.
    if (!g.agent && resume) {
        json copie = {{"pid", g.pid}};
        if (g.executable) copie["executable"] = *g.executable;
        if (g.lanceMs) copie["lance_ms"] = *g.lanceMs;
        noterPreuve(id, "copie_agent", copie, maintenantMs, v, g.lanceMs.value_or(g.pid));
    }
}

// The guardian counts from the root side what the child cannot stop or set back: the day's use
// is the higher figure, and an agent that counts less is noted when the gap opens, once per
// gap, not at every heartbeat while it lasts.
void Depot::noterCompteGardien(const std::string& id, const std::string& jour, double gardienMin,
                               std::optional<double> agentMin, std::int64_t maintenantMs,
                               VolumesJour& v) {
    base_
        .requete("INSERT INTO usage_jour (ordinateur_id, jour, minutes, gardien_min) "
                 "VALUES (?1, ?2, ?3, ?3) ON CONFLICT DO UPDATE SET "
                 "minutes = max(minutes, excluded.minutes), "
                 "gardien_min = max(COALESCE(gardien_min, 0), excluded.gardien_min)")
        .avec(id, jour, gardienMin)
        .executer();
    // Without the agent's figure of that day, nothing to compare: the gap stays as it was.
    if (!agentMin) return;
    const bool ecart = *agentMin < gardienMin - ecartCompteMin;
    Requete etat =
        base_.requete("SELECT en_desaccord FROM usage_jour WHERE ordinateur_id = ? AND jour = ?");
    etat.avec(id, jour);
    const bool deja = etat.ligne() && etat.entier(0) != 0;
    if (ecart && !deja)
        noterPreuve(id, "desaccord",
                    {{"jour", jour}, {"agent_min", *agentMin}, {"gardien_min", gardienMin}},
                    maintenantMs, v);
    if (ecart != deja)
        base_.requete("UPDATE usage_jour SET en_desaccord = ? WHERE ordinateur_id = ? AND jour = ?")
            .avec(std::int64_t(ecart), id, jour)
            .executer();
}

} // namespace tavi::famille
