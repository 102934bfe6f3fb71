#include "depot.h"
#include "temps.h"

namespace tavi::famille {

namespace {

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

    base_
        .requete("UPDATE ordinateurs SET dernier_ms = ?, dernier_genre = ?, dernier_resume = ?, "
                 "version = ?, plateforme = ?, systeme = COALESCE(?, systeme) WHERE id = ?")
        .avec(maintenantMs, nomGenre(b.genre), resume(b).dump(), b.version, b.plateforme, b.systeme,
              id)
        .executer();
    // Each message carries the computer's running total of the day: the latest one is the
    // figure, whatever came before.
    base_
        .requete("INSERT INTO usage_jour (ordinateur_id, jour, minutes) VALUES (?, ?, ?) "
                 "ON CONFLICT DO UPDATE SET minutes = excluded.minutes")
        .avec(id, jour, b.utiliseJourMin)
        .executer();
    for (const auto& [appli, minutes] : b.minutesLimites)
        base_
            .requete("INSERT INTO minutes_limites (ordinateur_id, jour, appli, minutes) "
                     "VALUES (?, ?, ?, ?) ON CONFLICT DO UPDATE SET minutes = excluded.minutes")
            .avec(id, jour, appli, minutes)
            .executer();
    // Counted by the day the server stored them, never by the instants the client sent.
    // Over a quota the excess is dropped and the message still answered: the agent needs its
    // rule set more than the parents need a flood of sites, and a refusal would only make it
    // send the same batch again.
    const VolumesJour avant = volumes(id, jour);
    VolumesJour v = avant;
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
    if (b.usageApplis) {
        // The usage batch restates whole days: each day it lists replaces the stored one.
        for (const auto& [jourLot, applis] : b.usageApplis->jours) {
            base_.requete("DELETE FROM usage_applis WHERE ordinateur_id = ? AND jour = ?")
                .avec(id, jourLot)
                .executer();
            for (const auto& [appli, minutes] : applis)
                base_
                    .requete("INSERT INTO usage_applis (ordinateur_id, jour, appli, minutes) "
                             "VALUES (?, ?, ?, ?)")
                    .avec(id, jourLot, appli, minutes)
                    .executer();
        }
        for (const auto& [appli, nom] : b.usageApplis->noms)
            base_
                .requete("INSERT INTO noms_applis (ordinateur_id, appli, nom) VALUES (?, ?, ?) "
                         "ON CONFLICT DO UPDATE SET nom = excluded.nom")
                .avec(id, appli, nom)
                .executer();
    }
    if (b.applisInstallees) {
        base_.requete("DELETE FROM applis_installees WHERE ordinateur_id = ?").avec(id).executer();
        for (const auto& appli : *b.applisInstallees)
            base_
                .requete("INSERT OR REPLACE INTO applis_installees (ordinateur_id, appli, nom, "
                         "categorie) VALUES (?, ?, ?, ?)")
                .avec(id, appli.id, appli.nom, appli.categorie)
                .executer();
    }
    if (b.genre != GenreMessage::battement && v.evenements < quotaJour.evenements) {
        base_
            .requete("INSERT INTO evenements (ordinateur_id, genre, texte, recu_ms) "
                     "VALUES (?, ?, ?, ?)")
            .avec(id, nomGenre(b.genre), b.annonce, maintenantMs)
            .executer();
        ++v.evenements;
    }
    if (v != avant) noterVolumes(id, jour, v);

    auto reponse = consigne(*enfant, usageDuJour(enfant->id, jour, id), maintenantMs, zone);
    t.valider();
    return reponse;
}

VolumesJour Depot::volumes(const std::string& ordinateurId, const std::string& jour) {
    Requete r = base_.requete("SELECT sites, signaux, evenements FROM volumes_jour "
                              "WHERE ordinateur_id = ? AND jour = ?");
    r.avec(ordinateurId, jour);
    if (!r.ligne()) return {};
    return {r.entier(0), r.entier(1), r.entier(2)};
}

void Depot::noterVolumes(const std::string& ordinateurId, const std::string& jour,
                         const VolumesJour& v) {
    base_
        .requete("INSERT INTO volumes_jour (ordinateur_id, jour, sites, signaux, evenements) "
                 "VALUES (?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET sites = excluded.sites, "
                 "signaux = excluded.signaux, evenements = excluded.evenements")
        .avec(ordinateurId, jour, v.sites, v.signaux, v.evenements)
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
