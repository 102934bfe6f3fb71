#include "commandes.h"
#include "temps.h"

namespace tavi::famille {

using nlohmann::json;

namespace {

json ligneEnfant(const Enfant& e) {
    return {{"id", e.id},
            {"prenom", e.prenom},
            {"langue", e.langue},
            {"fuseau", e.fuseau},
            {"tirelire_min", e.tirelireMin}};
}

json ligneDemande(const Demande& d) {
    json ligne = {{"id", d.id},           {"prenom", d.prenom}, {"type", d.genre},
                  {"minutes", d.minutes}, {"texte", d.texte},   {"cree_ms", d.creeMs},
                  {"statut", d.statut}};
    if (d.ordinateurId) ligne["ordinateur"] = *d.ordinateurId;
    if (d.reponseMs) ligne["reponse_ms"] = *d.reponseMs;
    if (d.minutesAccordees) ligne["minutes_accordees"] = *d.minutesAccordees;
    return ligne;
}

} // namespace

namespace Commandes {

void ajouterEnfant(Contexte& c) {
    auto langue = c.args.option("--langue").value_or("fr");
    auto zone = c.args.option("--fuseau").value_or(fuseauDuServeur());
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    c.ecrire(
        {{"enfant", ligneEnfant(c.depot.ajouterEnfant(prenom, langue, zone, c.maintenantMs))}});
}

void retirerEnfant(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    c.depot.retirerEnfant(prenom);
    c.ecrire({{"enfant_retire", prenom}});
}

void enfants(Contexte& c) {
    c.args.fin();
    for (const auto& e : c.depot.enfants())
        c.ecrire({{"enfant", ligneEnfant(e)}});
}

void code(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    auto code = c.depot.creerCode(prenom, c.maintenantMs);
    c.ecrire({{"code", code.code}, {"expire_ms", code.expireMs}});
}

void retirerOrdinateur(Contexte& c) {
    auto id = c.args.suivant("ID");
    c.args.fin();
    c.depot.retirerOrdinateur(id);
    c.ecrire({{"ordinateur_retire", id}});
}

void demandes(Contexte& c) {
    bool toutes = c.args.drapeau("--toutes");
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    for (const auto& d : c.depot.demandes(prenom, toutes))
        c.ecrire({{"demande", ligneDemande(d)}});
}

void accorder(Contexte& c) {
    auto id = entierEntre(c.args.suivant("ID"), "ID", 1, INT64_MAX);
    std::optional<std::int64_t> minutes;
    if (auto texte = c.args.suivantOptionnel()) minutes = entierEntre(*texte, "MINUTES", 1, 1440);
    c.args.fin();
    c.ecrire({{"demande", ligneDemande(c.depot.accorder(id, minutes, c.maintenantMs))}});
}

void refuser(Contexte& c) {
    auto id = entierEntre(c.args.suivant("ID"), "ID", 1, INT64_MAX);
    c.args.fin();
    c.ecrire({{"demande", ligneDemande(c.depot.refuser(id, c.maintenantMs))}});
}

void rapport(Contexte& c) {
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    for (const auto& ligne : c.depot.rapport(prenom, c.maintenantMs))
        c.ecrire(ligne);
}

void consigne(Contexte& c) {
    auto ordinateur = c.args.option("--ordinateur");
    auto prenom = c.args.suivant("PRENOM");
    c.args.fin();
    c.ecrire(c.depot.consigneDe(c.depot.enfant(prenom), ordinateur, c.maintenantMs));
}

} // namespace Commandes

} // namespace tavi::famille
