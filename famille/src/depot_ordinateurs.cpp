#include "depot.h"
#include "generique/identifiant.h"
#include "secrets.h"

namespace tavi::famille {

std::optional<Appairage> Depot::appairer(const std::string& code, const std::string& installation,
                                         const std::string& nom, const std::string& version,
                                         std::int64_t maintenantMs) {
    Transaction t(base_);
    std::string empreinteCode = Secrets::empreinte(Secrets::normaliserCode(code));
    Requete lu = base_.requete("SELECT enfant_id FROM codes WHERE empreinte = ? AND "
                               "utilise_ms IS NULL AND expire_ms > ?");
    lu.avec(empreinteCode, maintenantMs);
    if (!lu.ligne()) return std::nullopt;
    auto enfant = enfantParId(lu.texte(0));
    if (!enfant) return std::nullopt;
    base_.requete("UPDATE codes SET utilise_ms = ? WHERE empreinte = ?")
        .avec(maintenantMs, empreinteCode)
        .executer();

    // The same installation paired again with the same child (after the agent forgot its
    // pairing) is the same computer: its history stays, its old tokens go.
    Requete meme =
        base_.requete("SELECT id FROM ordinateurs WHERE enfant_id = ? AND installation = ?");
    meme.avec(enfant->id, installation);
    std::string ordinateurId;
    if (meme.ligne()) {
        ordinateurId = meme.texte(0);
        base_
            .requete("UPDATE ordinateurs SET nom = ?, version = ?, relie_ms = ?, "
                     "dernier_genre = NULL WHERE id = ?")
            .avec(nom, version, maintenantMs, ordinateurId)
            .executer();
        base_.requete("DELETE FROM jetons WHERE ordinateur_id = ?").avec(ordinateurId).executer();
    } else {
        ordinateurId = uuidAuHasard();
        base_
            .requete("INSERT INTO ordinateurs (id, enfant_id, installation, nom, version, "
                     "relie_ms) VALUES (?, ?, ?, ?, ?, ?)")
            .avec(ordinateurId, enfant->id, installation, nom, version, maintenantMs)
            .executer();
    }
    std::string jeton = Secrets::jeton();
    base_.requete("INSERT INTO jetons (empreinte, ordinateur_id, cree_ms) VALUES (?, ?, ?)")
        .avec(Secrets::empreinte(jeton), ordinateurId, maintenantMs)
        .executer();
    t.valider();
    return Appairage{jeton, *enfant, ordinateurId, nom};
}

std::optional<Acces> Depot::authentifier(const std::string& jeton) {
    Transaction t(base_);
    std::string empreinte = Secrets::empreinte(jeton);
    Requete r = base_.requete("SELECT j.ordinateur_id, o.enfant_id, j.cree_ms, j.precedent "
                              "FROM jetons j JOIN ordinateurs o ON o.id = j.ordinateur_id "
                              "WHERE j.empreinte = ?");
    r.avec(empreinte);
    if (!r.ligne()) return std::nullopt;
    Acces acces{r.texte(0), r.texte(1), empreinte, r.entier(2)};
    // A renewed token presented for the first time proves that the computer holds it: only
    // now may the one it replaces stop working.
    if (auto precedent = r.texteOuRien(3)) {
        base_.requete("DELETE FROM jetons WHERE empreinte = ?").avec(*precedent).executer();
        base_.requete("UPDATE jetons SET precedent = NULL WHERE empreinte = ?")
            .avec(empreinte)
            .executer();
    }
    t.valider();
    return acces;
}

std::string Depot::renouvelerJeton(const Acces& acces, std::int64_t maintenantMs) {
    Transaction t(base_);
    // A successor handed out before but never presented was lost with its answer: it is
    // replaced, so a computer never holds more than two valid tokens.
    base_.requete("DELETE FROM jetons WHERE precedent = ?").avec(acces.empreinteJeton).executer();
    std::string jeton = Secrets::jeton();
    base_
        .requete("INSERT INTO jetons (empreinte, ordinateur_id, cree_ms, precedent) "
                 "VALUES (?, ?, ?, ?)")
        .avec(Secrets::empreinte(jeton), acces.ordinateurId, maintenantMs, acces.empreinteJeton)
        .executer();
    t.valider();
    return jeton;
}

void Depot::retirerOrdinateur(const std::string& id) {
    Transaction t(base_);
    base_.requete("DELETE FROM ordinateurs WHERE id = ?").avec(id).executer();
    if (base_.changements() == 0) throw ErreurFamille("ordinateur inconnu : " + id);
    t.valider();
}

} // namespace tavi::famille
