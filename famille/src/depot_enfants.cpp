#include "depot.h"
#include "generique/identifiant.h"
#include "secrets.h"
#include "temps.h"

namespace tavi::famille {

namespace {

void verifierPrenom(const std::string& prenom) {
    if (prenom.empty() || prenom.size() > 64)
        throw ErreurFamille("un prénom a de 1 à 64 caractères");
    if (prenom.front() == '-')
        throw ErreurFamille("un prénom ne commence pas par « - » : " + prenom);
    for (unsigned char c : prenom)
        if (c < 0x20 || c == 0x7f)
            throw ErreurFamille("un prénom ne contient pas de caractère de contrôle");
}

void verifierLangue(const std::string& langue) {
    bool valide = langue.size() >= 2 && langue.size() <= 8;
    for (char c : langue)
        valide = valide && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-');
    if (!valide) throw ErreurFamille("langue invalide : " + langue + " (par exemple fr, en)");
}

} // namespace

Enfant Depot::ajouterEnfant(const std::string& prenom, const std::string& langue,
                            const std::string& fuseau, std::int64_t maintenantMs) {
    verifierPrenom(prenom);
    verifierLangue(langue);
    if (!trouverFuseau(fuseau))
        throw ErreurFamille("fuseau horaire inconnu : " + fuseau + " (par exemple Europe/Paris)");
    Transaction t(base_);
    Requete existe = base_.requete("SELECT 1 FROM enfants WHERE prenom = ?");
    existe.avec(prenom);
    if (existe.ligne()) throw ErreurFamille("un enfant s'appelle déjà " + prenom);
    Enfant enfant{uuidAuHasard(), prenom, langue, fuseau, 0, Reglages{}};
    base_
        .requete("INSERT INTO enfants (id, prenom, langue, fuseau, tirelire_min, reglages, "
                 "cree_ms) VALUES (?, ?, ?, ?, 0, ?, ?)")
        .avec(enfant.id, prenom, langue, fuseau, versJson(enfant.reglages).dump(), maintenantMs)
        .executer();
    t.valider();
    return enfant;
}

std::vector<Enfant> Depot::enfants() {
    std::vector<Enfant> tous;
    Requete r = base_.requete("SELECT id, prenom, langue, fuseau, tirelire_min, reglages FROM "
                              "enfants ORDER BY prenom");
    while (r.ligne())
        tous.push_back(lireEnfant(r));
    return tous;
}

void Depot::retirerEnfant(const std::string& prenom) {
    Transaction t(base_);
    Enfant e = enfant(prenom);
    base_.requete("DELETE FROM enfants WHERE id = ?").avec(e.id).executer();
    t.valider();
}

Enfant Depot::modifier(const std::string& prenom, const std::function<void(Enfant&)>& changement) {
    Transaction t(base_);
    Enfant e = enfant(prenom);
    changement(e);
    verifierLangue(e.langue);
    if (!trouverFuseau(e.fuseau)) throw ErreurFamille("fuseau horaire inconnu : " + e.fuseau);
    base_
        .requete("UPDATE enfants SET langue = ?, fuseau = ?, tirelire_min = ?, reglages = ? "
                 "WHERE id = ?")
        .avec(e.langue, e.fuseau, e.tirelireMin, versJson(e.reglages).dump(), e.id)
        .executer();
    t.valider();
    return e;
}

CodeAppairage Depot::creerCode(const std::string& prenom, std::int64_t maintenantMs) {
    Transaction t(base_);
    Enfant e = enfant(prenom);
    CodeAppairage code;
    // Two live codes with the same hash would make one of them open the wrong child: draw
    // again in the (astronomically rare) case of a collision.
    do {
        code = {Secrets::codeAppairage(), maintenantMs + dureeCodeMs};
        base_
            .requete("INSERT OR IGNORE INTO codes (empreinte, enfant_id, cree_ms, expire_ms) "
                     "VALUES (?, ?, ?, ?)")
            .avec(Secrets::empreinte(code.code), e.id, maintenantMs, code.expireMs)
            .executer();
    } while (base_.changements() == 0);
    t.valider();
    return code;
}

} // namespace tavi::famille
