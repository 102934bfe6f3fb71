#include "depot.h"
#include "temps.h"

#include <algorithm>
#include <set>

namespace tavi::famille {

using nlohmann::json;

namespace {

// How far the agent's clock may run ahead of the server's around midnight.
constexpr std::int64_t margeHorlogeMs = 5 * 60 * 1000;

const char* nomGenre(GenreMessage genre) {
    switch (genre) {
    case GenreMessage::battement:
        return "battement";
    case GenreMessage::annonce:
        return "annonce";
    case GenreMessage::arret:
        return "arret";
    }
    return "battement";
}

} // namespace

nlohmann::json Depot::battre(const Acces& acces, const Battement& b, std::int64_t maintenantMs) {
    Transaction t(base_);
    auto enfant = enfantParId(acces.enfantId);
    if (!enfant) throw ErreurFamille("enfant disparu");
    const auto& zone = fuseauDe(*enfant);
    std::string jour = jourLocal(maintenantMs, zone);
    const std::string& id = acces.ordinateurId;
    // Counted by the day the server stored them, never by the instants the client sent.
    // Over a quota the excess is dropped and the message still answered: the agent needs its
    // rule set more than the parents need a flood of sites, and a refusal would only make it
    // send the same batch again.
    const VolumesJour avant = volumes(id, jour);
    VolumesJour v = avant;

    // Before the update below: they compare this message with the computer's previous one.
    noterAgent(id, b, maintenantMs, v);
    noterGardien(id, b, maintenantMs, v);
    base_
        .requete("UPDATE ordinateurs SET dernier_ms = ?, dernier_genre = ?, dernier_resume = ?, "
                 "version = ?, plateforme = ?, systeme = COALESCE(?, systeme) WHERE id = ?")
        .avec(maintenantMs, nomGenre(b.genre), resume(b).dump(), b.version, b.plateforme, b.systeme,
              id)
        .executer();
    noterUsage(id, *enfant, b, maintenantMs, v);
    // A batch of sites is what was seen since the previous batch: seconds add up within the
    // hour, capped like the agent caps them. Only a new (domain, hour) row counts.
    for (const auto& site : b.sites) {
        base_
            .requete("UPDATE sites SET premier_ms = min(premier_ms, ?), "
                     "dernier_ms = max(dernier_ms, ?), secondes = min(3600, secondes + ?) "
                     "WHERE ordinateur_id = ? AND domaine = ? AND heure = ?")
            .avec(site.premierMs, site.dernierMs, site.secondes, id, site.domaine,
                  site.premierMs / 3600000)
            .executer();
        if (base_.changements() > 0 || v.sites >= quotaJour.sites) continue;
        base_
            .requete("INSERT INTO sites (ordinateur_id, domaine, heure, premier_ms, dernier_ms, "
                     "secondes) VALUES (?, ?, ?, ?, ?, ?)")
            .avec(id, site.domaine, site.premierMs / 3600000, site.premierMs, site.dernierMs,
                  site.secondes)
            .executer();
        ++v.sites;
    }
    if (b.usageApplis) noterApplis(id, *b.usageApplis, maintenantMs, v);
    if (b.applisInstallees) {
        base_.requete("DELETE FROM applis_installees WHERE ordinateur_id = ?").avec(id).executer();
        for (const auto& appli : *b.applisInstallees)
            base_
                .requete("INSERT OR REPLACE INTO applis_installees (ordinateur_id, appli, nom, "
                         "categorie) VALUES (?, ?, ?, ?)")
                .avec(id, appli.id, appli.nom, appli.categorie)
                .executer();
    }
    if (b.genre == GenreMessage::annonce && v.evenements < quotaJour.evenements) {
        base_
            .requete("INSERT INTO evenements (ordinateur_id, genre, texte, recu_ms) "
                     "VALUES (?, 'annonce', ?, ?)")
            .avec(id, b.annonce, maintenantMs)
            .executer();
        ++v.evenements;
    }
    if (b.genre == GenreMessage::arret) noterPreuve(id, "arret", json::object(), maintenantMs, v);
    if (v != avant) noterVolumes(id, jour, v);

    auto reponse = consigne(*enfant, usageDuJour(enfant->id, jour, id), maintenantMs, zone);
    t.valider();
    return reponse;
}

void Depot::noterUsage(const std::string& id, const Enfant& enfant, const Battement& b,
                       std::int64_t maintenantMs, VolumesJour& v) {
    const auto& zone = fuseauDe(enfant);
    const std::int64_t debut = debutJourMs(maintenantMs, zone);
    // A total larger than the time since the child's midnight cannot be today's: it is the
    // previous day's, sent just before midnight by a clock a little behind the server's, and
    // it must not fill today.
    const bool veille = b.utiliseJourMin * 60000 > double(maintenantMs - debut + margeHorlogeMs);
    const std::string jour = jourLocal(veille ? debut - 1 : maintenantMs, zone);

    // A computer's total of the day only grows: a lower figure is a count that was reset or
    // lowered to win the allowance back, so the stored one stands and the drop is kept as
    // evidence. One rounding step down is a last second lost to a power cut.
    Requete stocke = base_.requete("SELECT agent_min FROM usage_jour WHERE ordinateur_id = ? "
                                   "AND jour = ?");
    stocke.avec(id, jour);
    if (stocke.ligne() && !stocke.nulle(0) && stocke.reel(0) - b.utiliseJourMin > 0.1 + 1e-9)
        noterPreuve(
            id, "baisse",
            {{"jour", jour}, {"stocke_min", stocke.reel(0)}, {"recu_min", b.utiliseJourMin}},
            maintenantMs, v);
    base_
        .requete("INSERT INTO usage_jour (ordinateur_id, jour, minutes, agent_min) "
                 "VALUES (?1, ?2, ?3, ?3) ON CONFLICT DO UPDATE SET "
                 "minutes = max(minutes, excluded.minutes), "
                 "agent_min = max(COALESCE(agent_min, 0), excluded.agent_min)")
        .avec(id, jour, b.utiliseJourMin)
        .executer();
    // The guardian keys its count by the computer's own day: it counts on the child's today
    // here, or on the day the agent's figure went to (the previous one, just after midnight).
    // More than the time since the child's midnight is partly another day's (the computer's
    // zone is not the child's): only what today can hold is kept.
    const std::string aujourdhui = jourLocal(maintenantMs, zone);
    if (b.gardien && (b.gardien->jour == aujourdhui || b.gardien->jour == jour)) {
        double compte = *b.gardien->utiliseJourMin;
        if (*b.gardien->jour == aujourdhui)
            compte = std::min(compte, double(maintenantMs - debut + margeHorlogeMs) / 60000);
        noterCompteGardien(id, *b.gardien->jour, compte,
                           b.gardien->jour == jour ? std::optional(b.utiliseJourMin) : std::nullopt,
                           maintenantMs, v);
    }
    // Only the applications the parents limit: anything else would be a table without bound.
    std::set<std::string> limitees;
    for (const auto& limite : enfant.reglages.limitesApplis)
        limitees.insert(limite.applis.begin(), limite.applis.end());
    for (const auto& [appli, minutes] : b.minutesLimites)
        if (limitees.count(appli))
            base_
                .requete("INSERT INTO minutes_limites (ordinateur_id, jour, appli, minutes) "
                         "VALUES (?, ?, ?, ?) "
                         "ON CONFLICT DO UPDATE SET minutes = max(minutes, excluded.minutes)")
                .avec(id, jour, appli, minutes)
                .executer();
}

void Depot::noterApplis(const std::string& id, const LotUsage& lot, std::int64_t maintenantMs,
                        VolumesJour& v) {
    // A day outside the kept ones would be deleted at once if older, and never if later.
    const BornesJours bornes = bornesJours(maintenantMs, conservationMs);
    std::set<std::string> ecrites;
    // The batch restates whole days: each day it lists replaces the stored one. Only rows
    // beyond what the day held count against the quota.
    for (const auto& [jourLot, applis] : lot.jours) {
        if (jourLot < bornes.premier || jourLot > bornes.dernier) continue;
        Requete compte = base_.requete("SELECT COUNT(*) FROM usage_applis WHERE "
                                       "ordinateur_id = ? AND jour = ?");
        compte.avec(id, jourLot);
        const std::int64_t avant = compte.ligne() ? compte.entier(0) : 0;
        base_.requete("DELETE FROM usage_applis WHERE ordinateur_id = ? AND jour = ?")
            .avec(id, jourLot)
            .executer();
        // Past the quota the most used applications are the ones kept.
        std::vector<std::pair<std::string, double>> triees(applis.begin(), applis.end());
        std::stable_sort(triees.begin(), triees.end(),
                         [](const auto& a, const auto& b) { return a.second > b.second; });
        const std::int64_t permises =
            avant + std::max<std::int64_t>(0, quotaJour.applis - v.applis);
        std::int64_t nombre = 0;
        for (const auto& [appli, minutes] : triees) {
            if (nombre == permises) break;
            base_
                .requete("INSERT INTO usage_applis (ordinateur_id, jour, appli, minutes) "
                         "VALUES (?, ?, ?, ?)")
                .avec(id, jourLot, appli, minutes)
                .executer();
            ecrites.insert(appli);
            ++nombre;
        }
        v.applis += std::max<std::int64_t>(0, nombre - avant);
    }
    // A name is kept only with a stored use, and a new one counts like a new row: a day's
    // applications replaced by invented ones would otherwise add names without end.
    for (const auto& [appli, nom] : lot.noms) {
        if (!ecrites.count(appli)) continue;
        base_.requete("UPDATE noms_applis SET nom = ? WHERE ordinateur_id = ? AND appli = ?")
            .avec(nom, id, appli)
            .executer();
        if (base_.changements() > 0 || v.applis >= quotaJour.applis) continue;
        base_.requete("INSERT INTO noms_applis (ordinateur_id, appli, nom) VALUES (?, ?, ?)")
            .avec(id, appli, nom)
            .executer();
        ++v.applis;
    }
}

void Depot::noterAgent(const std::string& id, const Battement& b, std::int64_t maintenantMs,
                       VolumesJour& v) {
    std::optional<std::int64_t> dernierBattementMs, demarrageId, agentLanceMs;
    std::optional<std::string> dernierGenre, dernierResume;
    {
        Requete r = base_.requete("SELECT dernier_battement_ms, demarrage_id, agent_lance_ms, "
                                  "dernier_genre, dernier_resume FROM ordinateurs WHERE id = ?");
        r.avec(id);
        if (!r.ligne()) return;
        dernierBattementMs = r.entierOuRien(0);
        demarrageId = r.entierOuRien(1);
        agentLanceMs = r.entierOuRien(2);
        dernierGenre = r.texteOuRien(3);
        dernierResume = r.texteOuRien(4);
    }
    const bool autreDemarrage = b.demarrageId && demarrageId && *demarrageId != *b.demarrageId;
    json reboot = json::object();
    // Gaps are measured between heartbeats only: announcements sent in between would hide
    // an agent that no longer beats.
    if (b.genre == GenreMessage::battement) {
        const std::int64_t ecartMs = dernierBattementMs ? maintenantMs - *dernierBattementMs : 0;
        if (ecartMs > ecartMaxMs) {
            json details = {{"depuis_ms", *dernierBattementMs}, {"secondes", ecartMs / 1000}};
            // What the computer said last, before it fell silent.
            if (dernierGenre == "arret") details["apres"] = "arret";
            if (dernierGenre == "annonce" && dernierResume) {
                json dit = json::parse(*dernierResume, nullptr, false);
                if (dit.is_object() && dit.contains("annonce")) details["apres"] = dit["annonce"];
            }
            // A silence that ends on another boot is the computer off, not the agent held
            // back: the reboot's line says how long it lasted.
            if (ecartMs > silenceMaxMs && autreDemarrage)
                reboot = details;
            else
                noterPreuve(id, ecartMs > silenceMaxMs ? "silence" : "battements_espaces", details,
                            maintenantMs, v);
        }
        base_.requete("UPDATE ordinateurs SET dernier_battement_ms = ? WHERE id = ?")
            .avec(maintenantMs, id)
            .executer();
    }
    if (!b.demarrageId) return;
    if (autreDemarrage)
        noterPreuve(id, "redemarrage_ordinateur", reboot, maintenantMs, v);
    else if (demarrageId && agentLanceMs && b.agentLanceMs && *agentLanceMs != *b.agentLanceMs)
        noterPreuve(id, "redemarrage_agent",
                    {{"lance_avant_ms", *agentLanceMs}, {"lance_ms", *b.agentLanceMs}},
                    maintenantMs, v);
    base_.requete("UPDATE ordinateurs SET demarrage_id = ?, agent_lance_ms = ? WHERE id = ?")
        .avec(*b.demarrageId, b.agentLanceMs, id)
        .executer();
}

void Depot::noterPreuve(const std::string& id, const std::string& genre, const json& details,
                        std::int64_t maintenantMs, VolumesJour& v,
                        std::optional<std::int64_t> cleMs) {
    if (cleMs) {
        Requete deja = base_.requete("SELECT 1 FROM evenements WHERE ordinateur_id = ? AND "
                                     "genre = ? AND cle_ms = ?");
        deja.avec(id, genre, *cleMs);
        if (deja.ligne()) return;
    }
    if (v.preuves++ >= quotaJour.preuves) return;
    base_
        .requete("INSERT INTO evenements (ordinateur_id, genre, texte, recu_ms, cle_ms) "
                 "VALUES (?, ?, ?, ?, ?)")
        .avec(id, genre, details.empty() ? std::nullopt : std::optional(details.dump()),
              maintenantMs, cleMs)
        .executer();
}

VolumesJour Depot::volumes(const std::string& ordinateurId, const std::string& jour) {
    Requete r = base_.requete("SELECT sites, signaux, evenements, applis, preuves "
                              "FROM volumes_jour WHERE ordinateur_id = ? AND jour = ?");
    r.avec(ordinateurId, jour);
    if (!r.ligne()) return {};
    return {r.entier(0), r.entier(1), r.entier(2), r.entier(3), r.entier(4)};
}

void Depot::noterVolumes(const std::string& ordinateurId, const std::string& jour,
                         const VolumesJour& v) {
    base_
        .requete("INSERT INTO volumes_jour (ordinateur_id, jour, sites, signaux, evenements, "
                 "applis, preuves) VALUES (?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET "
                 "sites = excluded.sites, signaux = excluded.signaux, "
                 "evenements = excluded.evenements, applis = excluded.applis, "
                 "preuves = excluded.preuves")
        .avec(ordinateurId, jour, v.sites, v.signaux, v.evenements, v.applis, v.preuves)
        .executer();
}

UsageDuJour Depot::usageDuJour(const std::string& enfantId, const std::string& jour,
                               const std::optional<std::string>& demandeur) {
    UsageDuJour usage;
    Requete utilise =
        base_.requete("SELECT COALESCE(SUM(u.minutes), 0) FROM usage_jour u JOIN ordinateurs o "
                      "ON o.id = u.ordinateur_id WHERE o.enfant_id = ? AND u.jour = ?");
    utilise.avec(enfantId, jour);
    if (utilise.ligne()) usage.utiliseMin = utilise.reel(0);
    Requete ajoutes = base_.requete(
        "SELECT COALESCE(SUM(minutes), 0) FROM ajouts WHERE enfant_id = ? AND jour = ?");
    ajoutes.avec(enfantId, jour);
    if (ajoutes.ligne()) usage.ajoutesMin = ajoutes.reel(0);
    Requete autres = base_.requete(
        "SELECT m.appli, SUM(m.minutes) FROM minutes_limites m JOIN ordinateurs o "
        "ON o.id = m.ordinateur_id WHERE o.enfant_id = ? AND m.jour = ? AND o.id IS NOT ? "
        "GROUP BY m.appli");
    autres.avec(enfantId, jour, demandeur);
    while (autres.ligne())
        usage.autresParAppli[autres.texte(0)] = autres.reel(1);
    return usage;
}

nlohmann::json Depot::consigneDe(const Enfant& enfant, const std::optional<std::string>& demandeur,
                                 std::int64_t maintenantMs) {
    const auto& zone = fuseauDe(enfant);
    return consigne(enfant, usageDuJour(enfant.id, jourLocal(maintenantMs, zone), demandeur),
                    maintenantMs, zone);
}

} // namespace tavi::famille
