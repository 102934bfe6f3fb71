#include "depot.h"

#include "temps.h"

#include <date/tz.h>

namespace tavi::famille {

namespace {

// Version 5 of the schema (version 1 lacked volumes_jour, versions 2 to 4 the columns that
// colonnesAjoutees adds; every statement here is idempotent, so running it again upgrades an
// older base). Per-day tables are keyed by the child's local day ("yyyy-MM-dd"); instants are
// ms since the epoch; minutes are REAL.
constexpr const char* schema = R"sql(
CREATE TABLE IF NOT EXISTS enfants (
    id TEXT PRIMARY KEY,
    prenom TEXT NOT NULL UNIQUE,
    langue TEXT NOT NULL,
    fuseau TEXT NOT NULL,
    tirelire_min REAL NOT NULL DEFAULT 0,
    reglages TEXT NOT NULL,
    cree_ms INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS codes (
    empreinte TEXT PRIMARY KEY,
    enfant_id TEXT NOT NULL REFERENCES enfants(id) ON DELETE CASCADE,
    cree_ms INTEGER NOT NULL,
    expire_ms INTEGER NOT NULL,
    utilise_ms INTEGER
);
CREATE TABLE IF NOT EXISTS ordinateurs (
    id TEXT PRIMARY KEY,
    enfant_id TEXT NOT NULL REFERENCES enfants(id) ON DELETE CASCADE,
    installation TEXT NOT NULL,
    nom TEXT NOT NULL,
    version TEXT NOT NULL,
    plateforme TEXT,
    systeme TEXT,
    relie_ms INTEGER NOT NULL,
    dernier_ms INTEGER,
    dernier_genre TEXT,
    dernier_resume TEXT,
    dernier_battement_ms INTEGER,
    demarrage_id INTEGER,
    agent_lance_ms INTEGER
);
CREATE INDEX IF NOT EXISTS ordinateurs_enfant ON ordinateurs(enfant_id, installation);
CREATE TABLE IF NOT EXISTS jetons (
    empreinte TEXT PRIMARY KEY,
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    cree_ms INTEGER NOT NULL,
    precedent TEXT
);
CREATE INDEX IF NOT EXISTS jetons_ordinateur ON jetons(ordinateur_id);
CREATE TABLE IF NOT EXISTS usage_jour (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    jour TEXT NOT NULL,
    minutes REAL NOT NULL,
    agent_min REAL,
    gardien_min REAL,
    en_desaccord INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (ordinateur_id, jour)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS minutes_limites (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    jour TEXT NOT NULL,
    appli TEXT NOT NULL,
    minutes REAL NOT NULL,
    PRIMARY KEY (ordinateur_id, jour, appli)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS usage_applis (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    jour TEXT NOT NULL,
    appli TEXT NOT NULL,
    minutes REAL NOT NULL,
    PRIMARY KEY (ordinateur_id, jour, appli)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS noms_applis (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    appli TEXT NOT NULL,
    nom TEXT NOT NULL,
    PRIMARY KEY (ordinateur_id, appli)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS sites (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    domaine TEXT NOT NULL,
    heure INTEGER NOT NULL,
    premier_ms INTEGER NOT NULL,
    dernier_ms INTEGER NOT NULL,
    secondes INTEGER NOT NULL,
    PRIMARY KEY (ordinateur_id, domaine, heure)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS applis_installees (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    appli TEXT NOT NULL,
    nom TEXT NOT NULL,
    categorie TEXT,
    PRIMARY KEY (ordinateur_id, appli)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS demandes (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    enfant_id TEXT NOT NULL REFERENCES enfants(id) ON DELETE CASCADE,
    ordinateur_id TEXT REFERENCES ordinateurs(id) ON DELETE SET NULL,
    genre TEXT NOT NULL,
    minutes INTEGER NOT NULL,
    texte TEXT NOT NULL,
    cree_ms INTEGER NOT NULL,
    statut TEXT NOT NULL,
    reponse_ms INTEGER,
    minutes_accordees INTEGER
);
CREATE INDEX IF NOT EXISTS demandes_enfant ON demandes(enfant_id, statut);
CREATE TABLE IF NOT EXISTS ajouts (
    id INTEGER PRIMARY KEY,
    enfant_id TEXT NOT NULL REFERENCES enfants(id) ON DELETE CASCADE,
    jour TEXT NOT NULL,
    minutes REAL NOT NULL,
    origine TEXT NOT NULL,
    cree_ms INTEGER NOT NULL
);
CREATE INDEX IF NOT EXISTS ajouts_enfant ON ajouts(enfant_id, jour);
CREATE TABLE IF NOT EXISTS signaux (
    id INTEGER PRIMARY KEY,
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    nature TEXT NOT NULL,
    detail TEXT NOT NULL,
    recu_ms INTEGER NOT NULL
);
CREATE INDEX IF NOT EXISTS signaux_ordinateur ON signaux(ordinateur_id, recu_ms);
CREATE TABLE IF NOT EXISTS evenements (
    id INTEGER PRIMARY KEY,
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    genre TEXT NOT NULL,
    texte TEXT,
    recu_ms INTEGER NOT NULL,
    cle_ms INTEGER
);
CREATE INDEX IF NOT EXISTS evenements_ordinateur ON evenements(ordinateur_id, recu_ms);
CREATE TABLE IF NOT EXISTS volumes_jour (
    ordinateur_id TEXT NOT NULL REFERENCES ordinateurs(id) ON DELETE CASCADE,
    jour TEXT NOT NULL,
    sites INTEGER NOT NULL DEFAULT 0,
    signaux INTEGER NOT NULL DEFAULT 0,
    evenements INTEGER NOT NULL DEFAULT 0,
    applis INTEGER NOT NULL DEFAULT 0,
    preuves INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (ordinateur_id, jour)
) WITHOUT ROWID;
)sql";

// The columns added since a table was first created: CREATE TABLE IF NOT EXISTS leaves an
// older table as it was.
constexpr const char* colonnesAjoutees[][3] = {
    {"ordinateurs", "dernier_battement_ms", "INTEGER"},
    {"ordinateurs", "demarrage_id", "INTEGER"},
    {"ordinateurs", "agent_lance_ms", "INTEGER"},
    {"volumes_jour", "applis", "INTEGER NOT NULL DEFAULT 0"},
    {"volumes_jour", "preuves", "INTEGER NOT NULL DEFAULT 0"},
    {"evenements", "cle_ms", "INTEGER"},
    // The day's use counts the higher of the agent's and the guardian's figures; each is kept
    // for the parents to compare (a day stored before has neither).
    {"usage_jour", "agent_min", "REAL"},
    {"usage_jour", "gardien_min", "REAL"},
    {"usage_jour", "en_desaccord", "INTEGER NOT NULL DEFAULT 0"},
};

// After the columns: an older evenements table gets its cle_ms only above. The guardian's
// evidence is keyed by the instant it is about, so the same absence sent again by a retried
// heartbeat is stored once.
constexpr const char* indexAjoutes = R"sql(
CREATE UNIQUE INDEX IF NOT EXISTS evenements_cle ON evenements(ordinateur_id, genre, cle_ms)
    WHERE cle_ms IS NOT NULL;
)sql";

bool aLaColonne(Base& base, const std::string& table, const std::string& colonne) {
    Requete r = base.requete("SELECT 1 FROM pragma_table_info(?) WHERE name = ?");
    r.avec(table, colonne);
    return r.ligne();
}

} // namespace

Depot::Depot(const std::string& chemin, Base::Ouverture ouverture) : base_(chemin, ouverture) {
    creerSchema();
}

void Depot::creerSchema() {
    std::int64_t numero = 0;
    {
        // Finished before the schema changes: no statement of ours stays open across them.
        Requete version = base_.requete("PRAGMA user_version");
        if (version.ligne()) numero = version.entier(0);
    }
    if (numero == 5) return;
    if (numero > 5) throw ErreurBase("cette base vient d'une version plus récente de tavi-famille");
    Transaction t(base_);
    base_.executer(schema);
    for (const auto& [table, colonne, definition] : colonnesAjoutees)
        if (!aLaColonne(base_, table, colonne))
            base_.executer(
                (std::string("ALTER TABLE ") + table + " ADD COLUMN " + colonne + " " + definition)
                    .c_str());
    base_.executer(indexAjoutes);
    // Before version 5 the day's use was the agent's figure alone.
    if (numero > 0 && numero < 5)
        base_.executer("UPDATE usage_jour SET agent_min = minutes WHERE agent_min IS NULL");
    base_.executer("PRAGMA user_version = 5");
    t.valider();
}

Enfant Depot::lireEnfant(Requete& r) const {
    return Enfant{r.texte(0), r.texte(1), r.texte(2),
                  r.texte(3), r.reel(4),  reglagesDepuisJson(nlohmann::json::parse(r.texte(5)))};
}

Enfant Depot::enfant(const std::string& prenom) {
    Requete r = base_.requete(
        "SELECT id, prenom, langue, fuseau, tirelire_min, reglages FROM enfants WHERE prenom = ?");
    r.avec(prenom);
    if (r.ligne()) return lireEnfant(r);
    std::string connus;
    Requete tous = base_.requete("SELECT prenom FROM enfants ORDER BY prenom");
    while (tous.ligne())
        connus += (connus.empty() ? "" : ", ") + tous.texte(0);
    throw ErreurFamille("enfant inconnu : " + prenom +
                        (connus.empty() ? " (aucun enfant : « enfant ajouter PRENOM »)"
                                        : " (enfants : " + connus + ")"));
}

std::optional<Enfant> Depot::enfantParId(const std::string& id) {
    Requete r = base_.requete(
        "SELECT id, prenom, langue, fuseau, tirelire_min, reglages FROM enfants WHERE id = ?");
    r.avec(id);
    if (r.ligne()) return lireEnfant(r);
    return std::nullopt;
}

const date::time_zone& fuseauDe(const Enfant& enfant) {
    if (const auto* zone = trouverFuseau(enfant.fuseau)) return *zone;
    return *date::locate_zone("UTC");
}

} // namespace tavi::famille
