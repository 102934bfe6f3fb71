#include "depot.h"
#include "temps.h"

namespace tavi::famille {

namespace {

// A child who keeps pressing "ask for time" fills the parents' list with nothing new.
constexpr std::int64_t demandesEnAttenteMax = 10;

} // namespace

std::optional<std::int64_t> Depot::demander(const Acces& acces, const std::string& genre,
                                            std::int64_t minutes, const std::string& texte,
                                            std::int64_t maintenantMs) {
    Transaction t(base_);
    Requete enAttente = base_.requete(
        "SELECT COUNT(*) FROM demandes WHERE enfant_id = ? AND statut = 'en_attente'");
    enAttente.avec(acces.enfantId);
    if (enAttente.ligne() && enAttente.entier(0) >= demandesEnAttenteMax) return std::nullopt;
    base_
        .requete("INSERT INTO demandes (enfant_id, ordinateur_id, genre, minutes, texte, "
                 "cree_ms, statut) VALUES (?, ?, ?, ?, ?, ?, 'en_attente')")
        .avec(acces.enfantId, acces.ordinateurId, genre, minutes, texte, maintenantMs)
        .executer();
    auto id = base_.derniereInsertion();
    t.valider();
    return id;
}

ResultatTirelire Depot::utiliserTirelire(const Acces& acces, std::int64_t minutes,
                                         std::int64_t maintenantMs) {
    Transaction t(base_);
    auto enfant = enfantParId(acces.enfantId);
    if (!enfant) throw ErreurFamille("enfant disparu");
    // Without a daily limit the minutes would change nothing: they stay saved.
    if (!enfant->reglages.limiteJourMin) return ResultatTirelire::pasDeLimite;
    if (enfant->tirelireMin < static_cast<double>(minutes)) return ResultatTirelire::pasAssez;
    base_.requete("UPDATE enfants SET tirelire_min = tirelire_min - ? WHERE id = ?")
        .avec(static_cast<double>(minutes), enfant->id)
        .executer();
    base_
        .requete("INSERT INTO ajouts (enfant_id, jour, minutes, origine, cree_ms) "
                 "VALUES (?, ?, ?, 'tirelire', ?)")
        .avec(enfant->id, jourLocal(maintenantMs, fuseauDe(*enfant)), static_cast<double>(minutes),
              maintenantMs)
        .executer();
    t.valider();
    return ResultatTirelire::fait;
}

bool Depot::signaler(const Acces& acces, const std::string& nature, const std::string& detail,
                     std::int64_t maintenantMs) {
    Transaction t(base_);
    auto enfant = enfantParId(acces.enfantId);
    if (!enfant) throw ErreurFamille("enfant disparu");
    std::string jour = jourLocal(maintenantMs, fuseauDe(*enfant));
    VolumesJour v = volumes(acces.ordinateurId, jour);
    if (v.signaux >= quotaJour.signaux) return false;
    base_
        .requete("INSERT INTO signaux (ordinateur_id, nature, detail, recu_ms) "
                 "VALUES (?, ?, ?, ?)")
        .avec(acces.ordinateurId, nature, detail, maintenantMs)
        .executer();
    ++v.signaux;
    noterVolumes(acces.ordinateurId, jour, v);
    t.valider();
    return true;
}

Demande Depot::lireDemande(std::int64_t id) {
    Requete r = base_.requete(
        "SELECT d.id, e.prenom, d.ordinateur_id, d.genre, d.minutes, d.texte, d.cree_ms, "
        "d.statut, d.reponse_ms, d.minutes_accordees FROM demandes d JOIN enfants e "
        "ON e.id = d.enfant_id WHERE d.id = ?");
    r.avec(id);
    if (!r.ligne()) throw ErreurFamille("demande inconnue : " + std::to_string(id));
    return Demande{r.entier(0),       r.texte(1),       r.texteOuRien(2), r.texte(3),
                   r.entier(4),       r.texte(5),       r.entier(6),      r.texte(7),
                   r.entierOuRien(8), r.entierOuRien(9)};
}

std::vector<Demande> Depot::demandes(const std::string& prenom, bool toutes) {
    Enfant e = enfant(prenom);
    Requete r = base_.requete("SELECT id FROM demandes WHERE enfant_id = ? AND "
                              "(? OR statut = 'en_attente') ORDER BY id");
    r.avec(e.id, toutes);
    std::vector<std::int64_t> ids;
    while (r.ligne())
        ids.push_back(r.entier(0));
    std::vector<Demande> liste;
    for (auto id : ids)
        liste.push_back(lireDemande(id));
    return liste;
}

Demande Depot::accorder(std::int64_t id, std::optional<std::int64_t> minutes,
                        std::int64_t maintenantMs) {
    Transaction t(base_);
    Demande d = lireDemande(id);
    if (d.statut != "en_attente")
        throw ErreurFamille("la demande " + std::to_string(id) + " a déjà sa réponse (" + d.statut +
                            ")");
    std::int64_t accordees = minutes.value_or(d.minutes);
    Enfant e = enfant(d.prenom);
    // The minutes are for the day on which the parents say yes, in the child's zone.
    base_
        .requete("INSERT INTO ajouts (enfant_id, jour, minutes, origine, cree_ms) "
                 "VALUES (?, ?, ?, 'accord', ?)")
        .avec(e.id, jourLocal(maintenantMs, fuseauDe(e)), static_cast<double>(accordees),
              maintenantMs)
        .executer();
    base_
        .requete("UPDATE demandes SET statut = 'accordee', reponse_ms = ?, minutes_accordees = ? "
                 "WHERE id = ?")
        .avec(maintenantMs, accordees, id)
        .executer();
    Demande fin = lireDemande(id);
    t.valider();
    return fin;
}

Demande Depot::refuser(std::int64_t id, std::int64_t maintenantMs) {
    Transaction t(base_);
    Demande d = lireDemande(id);
    if (d.statut != "en_attente")
        throw ErreurFamille("la demande " + std::to_string(id) + " a déjà sa réponse (" + d.statut +
                            ")");
    base_.requete("UPDATE demandes SET statut = 'refusee', reponse_ms = ? WHERE id = ?")
        .avec(maintenantMs, id)
        .executer();
    Demande fin = lireDemande(id);
    t.valider();
    return fin;
}

} // namespace tavi::famille
