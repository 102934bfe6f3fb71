#include "platform/sqlite/reglages_sqlite.h"

#include "commun/dossier_prive.h"
#include "commun/journal.h"
#include "platform/sqlite/fichiers_reglages.h"

#include <cmath>
#include <sqlite3.h>
#include <string_view>

namespace tavi {

namespace fs = std::filesystem;

namespace {

// Another process (the `tavi` command) holds the write lock for milliseconds. Past this bound
// the write is given up rather than freezing the agent's tick.
constexpr int attenteVerrouMs = 2000;

// A checkpoint syncs the WAL to disk: with synchronous=NORMAL, only what was committed since
// the last one can be lost in a power cut.
constexpr auto intervalleCheckpoint = std::chrono::seconds(60);

// The stored type names, as an administrator reads them with the sqlite3 shell.
constexpr std::string_view typeNombre = "nombre";
constexpr std::string_view typeTexte = "texte";
constexpr std::string_view typeBooleen = "booleen";
constexpr std::string_view typeTextes = "textes";
constexpr std::string_view typeDictionnaire = "dictionnaire";
constexpr std::string_view typeDonnees = "donnees";

std::string_view colonneTexte(sqlite3_stmt* requete, int colonne) {
    auto* octets = reinterpret_cast<const char*>(sqlite3_column_text(requete, colonne));
    if (!octets) return {};
    return {octets, static_cast<std::size_t>(sqlite3_column_bytes(requete, colonne))};
}

std::optional<nlohmann::json> json(sqlite3_stmt* requete, int colonne) {
    if (sqlite3_column_type(requete, colonne) != SQLITE_TEXT) return std::nullopt;
    auto texte = colonneTexte(requete, colonne);
    auto valeur = nlohmann::json::parse(texte.begin(), texte.end(), nullptr, false);
    if (valeur.is_discarded()) return std::nullopt;
    return valeur;
}

// Reads the value column of a row according to its stored type. A row whose value does not
// have the shape its type promises (edited by hand, written by a later version) reads as
// absent rather than as a wrong value.
std::optional<Valeur> decoder(std::string_view type, sqlite3_stmt* requete, int colonne) {
    const int sorte = sqlite3_column_type(requete, colonne);
    if (type == typeNombre) {
        if (sorte != SQLITE_FLOAT && sorte != SQLITE_INTEGER) return std::nullopt;
        return Valeur{sqlite3_column_double(requete, colonne)};
    }
    if (type == typeTexte) {
        if (sorte != SQLITE_TEXT) return std::nullopt;
        return Valeur{std::string(colonneTexte(requete, colonne))};
    }
    if (type == typeBooleen) {
        if (sorte != SQLITE_INTEGER) return std::nullopt;
        const auto entier = sqlite3_column_int64(requete, colonne);
        if (entier != 0 && entier != 1) return std::nullopt;
        return Valeur{entier == 1};
    }
    if (type == typeTextes) {
        auto tableau = json(requete, colonne);
        if (!tableau || !tableau->is_array()) return std::nullopt;
        std::vector<std::string> textes;
        for (const auto& element : *tableau) {
            if (!element.is_string()) return std::nullopt;
            textes.push_back(element.get<std::string>());
        }
        return Valeur{std::move(textes)};
    }
    if (type == typeDictionnaire) {
        auto objet = json(requete, colonne);
        if (!objet) return std::nullopt;
        return Valeur{Dictionnaire{std::move(*objet)}};
    }
    if (type == typeDonnees) {
        if (sorte != SQLITE_BLOB) return std::nullopt;
        auto* octets = static_cast<const char*>(sqlite3_column_blob(requete, colonne));
        const auto taille = static_cast<std::size_t>(sqlite3_column_bytes(requete, colonne));
        return Valeur{Donnees{octets ? std::string(octets, taille) : std::string()}};
    }
    return std::nullopt;
}

struct Encodage {
    std::string_view type;
    std::string texte; // JSON text for arrays and dictionaries
};

// The stored form of a value, or absent when the store cannot keep it faithfully: SQLite
// turns a NaN into NULL, and JSON text cannot carry invalid UTF-8.
std::optional<Encodage> encoder(const Valeur& valeur) {
    auto enJson = [](std::string_view type, const nlohmann::json& j) -> std::optional<Encodage> {
        try {
            return Encodage{type, j.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict)};
        } catch (const nlohmann::json::exception&) {
            return std::nullopt;
        }
    };
    switch (valeur.index()) {
    case 0:
        if (std::isnan(std::get<double>(valeur))) return std::nullopt;
        return Encodage{typeNombre, {}};
    case 1:
        return Encodage{typeTexte, {}};
    case 2:
        return Encodage{typeBooleen, {}};
    case 3:
        return enJson(typeTextes, std::get<std::vector<std::string>>(valeur));
    case 4:
        return enJson(typeDictionnaire, std::get<Dictionnaire>(valeur).objet);
    default:
        return Encodage{typeDonnees, {}};
    }
}

int lierValeur(sqlite3_stmt* requete, int position, const Valeur& valeur,
               const Encodage& encodage) {
    if (auto* nombre = std::get_if<double>(&valeur))
        return sqlite3_bind_double(requete, position, *nombre);
    if (auto* texte = std::get_if<std::string>(&valeur))
        return sqlite3_bind_text64(requete, position, texte->data(), texte->size(),
                                   SQLITE_TRANSIENT, SQLITE_UTF8);
    if (auto* booleen = std::get_if<bool>(&valeur))
        return sqlite3_bind_int(requete, position, *booleen ? 1 : 0);
    if (auto* donnees = std::get_if<Donnees>(&valeur))
        return sqlite3_bind_blob64(requete, position, donnees->octets.data(),
                                   donnees->octets.size(), SQLITE_TRANSIENT);
    return sqlite3_bind_text64(requete, position, encodage.texte.data(), encodage.texte.size(),
                               SQLITE_TRANSIENT, SQLITE_UTF8);
}

int lierTexte(sqlite3_stmt* requete, int position, std::string_view texte) {
    return sqlite3_bind_text64(requete, position, texte.data(), texte.size(), SQLITE_TRANSIENT,
                               SQLITE_UTF8);
}

} // namespace

ReglagesSqlite::ReglagesSqlite(EnMemoire) {
    ouvrirEnMemoire();
}

ReglagesSqlite::ReglagesSqlite(const fs::path& fichier, std::chrono::milliseconds duree)
    : fraicheur(duree) {
    const auto nom = fichier.string();
    auto memoire = [&](const std::string& pourquoi) {
        journaliser("defaults: " + pourquoi + "; keeping the defaults in memory for this run");
        ouvrirEnMemoire();
    };

    if (auto erreur = creerDossierPrive(fichier.parent_path())) {
        memoire("cannot create the folder of " + nom + " (" + *erreur + ")");
        return;
    }
    if (ouvrir(fichier)) return;

    const std::string raison = base ? sqlite3_errmsg(base) : "out of memory";
    const bool occupe =
        base && (sqlite3_errcode(base) == SQLITE_BUSY || sqlite3_errcode(base) == SQLITE_LOCKED);
    abandonner();
    std::error_code absent;
    if (!fs::exists(fs::symlink_status(fichier, absent))) {
        memoire("cannot create " + nom + " (" + raison + ")");
        return;
    }
    // A store another process keeps locked is sound: setting it aside would lose the pairing.
    if (occupe) {
        memoire(nom + " stays locked by another process (" + raison + ")");
        return;
    }
    auto aCote = mettreDeCote(fichier);
    if (!aCote.erreur.empty()) {
        memoire(nom + " is unusable (" + raison + ") and cannot be set aside (" + aCote.erreur +
                ")");
        return;
    }
    const std::string deCote = "; set aside as " + aCote.chemin.string();
    if (ouvrir(fichier)) {
        journaliser("defaults: " + nom + " was unusable (" + raison + ")" + deCote +
                    "; started a fresh store");
        return;
    }
    const std::string raisonNeuve = base ? sqlite3_errmsg(base) : "out of memory";
    abandonner();
    memoire(nom + " was unusable (" + raison + ")" + deCote + ", and a fresh store failed too (" +
            raisonNeuve + ")");
}

ReglagesSqlite::~ReglagesSqlite() {
    fermer();
}

bool ReglagesSqlite::ouvrir(const fs::path& fichier) {
    const int drapeaux = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    if (sqlite3_open_v2(fichier.c_str(), &base, drapeaux, nullptr) != SQLITE_OK) return false;
    // SQLite creates the file readable by all, and the -wal and -shm it creates next copy its
    // permissions. The folder is private when we create it, not always when it was there.
    std::error_code ignore;
    fs::permissions(fichier, fs::perms::owner_read | fs::perms::owner_write, ignore);
    sqlite3_busy_timeout(base, attenteVerrouMs);

    // The first statement that reads the file: a file that is not a database fails here. A file
    // system without shared memory answers with another mode; the rollback journal it keeps is
    // slower but as safe, so the store is used as it is rather than set aside.
    sqlite3_stmt* mode = nullptr;
    if (sqlite3_prepare_v2(base, "PRAGMA journal_mode=WAL", -1, &mode, nullptr) != SQLITE_OK)
        return false;
    const bool lu = sqlite3_step(mode) == SQLITE_ROW;
    sqlite3_finalize(mode);
    if (!lu) return false;

    sqlite3_stmt* controle = nullptr;
    if (sqlite3_prepare_v2(base, "PRAGMA quick_check", -1, &controle, nullptr) != SQLITE_OK)
        return false;
    const bool sain = sqlite3_step(controle) == SQLITE_ROW && colonneTexte(controle, 0) == "ok";
    sqlite3_finalize(controle);
    if (!sain) return false;

    // A table of another shape under our name fails here, when the statements are prepared.
    if (!executer("PRAGMA synchronous=NORMAL") ||
        !executer("CREATE TABLE IF NOT EXISTS reglages ("
                  "cle TEXT PRIMARY KEY NOT NULL, type TEXT NOT NULL, valeur)") ||
        !preparer())
        return false;
    persiste = true;
    dernierCheckpoint = std::chrono::steady_clock::now();
    return true;
}

void ReglagesSqlite::ouvrirEnMemoire() {
    persiste = false;
    if (sqlite3_open_v2(":memory:", &base, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
            SQLITE_OK ||
        !executer("CREATE TABLE reglages (cle TEXT PRIMARY KEY NOT NULL, type TEXT NOT NULL, "
                  "valeur)") ||
        !preparer())
        fermer();
}

bool ReglagesSqlite::preparer() {
    return sqlite3_prepare_v2(base, "SELECT type, valeur FROM reglages WHERE cle = ?1", -1,
                              &requeteLire, nullptr) == SQLITE_OK &&
           sqlite3_prepare_v2(base,
                              "INSERT INTO reglages (cle, type, valeur) VALUES (?1, ?2, ?3) "
                              "ON CONFLICT (cle) DO UPDATE SET type = excluded.type, "
                              "valeur = excluded.valeur",
                              -1, &requeteEcrire, nullptr) == SQLITE_OK &&
           sqlite3_prepare_v2(base, "DELETE FROM reglages WHERE cle = ?1", -1, &requeteSupprimer,
                              nullptr) == SQLITE_OK;
}

void ReglagesSqlite::fermer() {
    for (auto** requete : {&requeteLire, &requeteEcrire, &requeteSupprimer}) {
        sqlite3_finalize(*requete);
        *requete = nullptr;
    }
    sqlite3_close(base);
    base = nullptr;
}

void ReglagesSqlite::abandonner() {
    // The last connection to close deletes the -wal it finds unusable; the journal of a store
    // we set aside is part of what an examination needs.
    int garder = 1;
    if (base) sqlite3_file_control(base, "main", SQLITE_FCNTL_PERSIST_WAL, &garder);
    fermer();
}

bool ReglagesSqlite::executer(const char* sql) {
    return sqlite3_exec(base, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool ReglagesSqlite::appliquer(sqlite3_stmt* requete) {
    const bool fait = sqlite3_step(requete) == SQLITE_DONE;
    sqlite3_reset(requete);
    sqlite3_clear_bindings(requete);
    return fait;
}

std::optional<Valeur> ReglagesSqlite::lire(const std::string& cle) const {
    if (auto it = enAttente.find(cle); it != enAttente.end()) return it->second;
    const auto maintenant = std::chrono::steady_clock::now();
    if (auto it = lus.find(cle); it != lus.end() && maintenant - it->second.quand < fraicheur)
        return it->second.valeur;
    if (!base || lierTexte(requeteLire, 1, cle) != SQLITE_OK) return std::nullopt;
    std::optional<Valeur> valeur;
    const int pas = sqlite3_step(requeteLire);
    if (pas == SQLITE_ROW) valeur = decoder(colonneTexte(requeteLire, 0), requeteLire, 1);
    sqlite3_reset(requeteLire);
    sqlite3_clear_bindings(requeteLire);
    // A failed read (the file locked too long) is not kept: the next one asks again.
    if ((pas == SQLITE_ROW || pas == SQLITE_DONE) && fraicheur.count() > 0)
        lus[cle] = Lu{valeur, maintenant};
    return valeur;
}

void ReglagesSqlite::retenir(const std::string& cle, std::optional<Valeur> valeur) {
    if (profondeurGroupe > 0)
        enAttente[cle] = std::move(valeur);
    else if (fraicheur.count() > 0)
        lus[cle] = Lu{std::move(valeur), std::chrono::steady_clock::now()};
}

void ReglagesSqlite::oublierEnAttente() {
    // Undone or not committed: what the file holds now is read again.
    for (const auto& [cle, valeur] : enAttente)
        lus.erase(cle);
    enAttente.clear();
}

void ReglagesSqlite::ecrire(const std::string& cle, const Valeur& valeur) {
    auto encodage = encoder(valeur);
    if (!encodage) {
        // A value we cannot keep faithfully is refused: the stored one stays as it was.
        ++nombreEchecs;
        groupeEchoue = groupeEchoue || profondeurGroupe > 0;
        return;
    }
    const bool fait = base && !groupeEchoue && lierTexte(requeteEcrire, 1, cle) == SQLITE_OK &&
                      lierTexte(requeteEcrire, 2, encodage->type) == SQLITE_OK &&
                      lierValeur(requeteEcrire, 3, valeur, *encodage) == SQLITE_OK &&
                      appliquer(requeteEcrire);
    if (!fait) {
        if (base) {
            sqlite3_reset(requeteEcrire);
            sqlite3_clear_bindings(requeteEcrire);
        }
        ++nombreEchecs;
        groupeEchoue = groupeEchoue || profondeurGroupe > 0;
        lus.erase(cle);
        return;
    }
    retenir(cle, valeur);
    if (profondeurGroupe == 0) checkpointSiDu();
}

void ReglagesSqlite::supprimer(const std::string& cle) {
    const bool fait = base && !groupeEchoue && lierTexte(requeteSupprimer, 1, cle) == SQLITE_OK &&
                      appliquer(requeteSupprimer);
    if (!fait) {
        ++nombreEchecs;
        groupeEchoue = groupeEchoue || profondeurGroupe > 0;
        lus.erase(cle);
        return;
    }
    retenir(cle, std::nullopt);
    if (profondeurGroupe == 0) checkpointSiDu();
}

void ReglagesSqlite::grouper(const std::function<void()>& ecritures) {
    if (!base) {
        ecritures();
        return;
    }
    const bool exterieur = profondeurGroupe == 0;
    // IMMEDIATE takes the write lock at once: a group that reads first and then writes would
    // otherwise fail without waiting when another process wrote in between.
    // Once a write of the group has failed nothing more is written, so an inner group has no
    // savepoint to open.
    const bool ouvert =
        !groupeEchoue && executer(exterieur ? "BEGIN IMMEDIATE" : "SAVEPOINT groupe");
    if (!ouvert) groupeEchoue = true;

    ++profondeurGroupe;
    try {
        ecritures();
    } catch (...) {
        --profondeurGroupe;
        if (ouvert && exterieur) executer("ROLLBACK");
        if (ouvert && !exterieur) executer("ROLLBACK TO groupe; RELEASE groupe");
        if (exterieur) groupeEchoue = false;
        oublierEnAttente();
        throw;
    }
    --profondeurGroupe;

    if (!exterieur) {
        if (ouvert) executer("RELEASE groupe");
        return;
    }
    const bool valide = ouvert && !groupeEchoue && executer("COMMIT");
    if (ouvert && !valide) {
        executer("ROLLBACK");
        ++nombreEchecs;
    }
    if (valide && fraicheur.count() > 0) {
        const auto maintenant = std::chrono::steady_clock::now();
        for (auto& [cle, valeur] : enAttente)
            lus[cle] = Lu{std::move(valeur), maintenant};
        enAttente.clear();
    }
    oublierEnAttente();
    groupeEchoue = false;
    if (valide) checkpointSiDu();
}

std::int64_t ReglagesSqlite::echecs() const {
    return nombreEchecs;
}

void ReglagesSqlite::checkpointSiDu() {
    if (!persiste) return;
    const auto maintenant = std::chrono::steady_clock::now();
    if (maintenant - dernierCheckpoint < intervalleCheckpoint) return;
    dernierCheckpoint = maintenant;
    sqlite3_wal_checkpoint_v2(base, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
}

} // namespace tavi
