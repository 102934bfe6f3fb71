#include "base.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi::famille {

namespace {

// The base holds the family's whole life: only its owner may read it. SQLite gives the -wal
// and -shm files the mode of the base, so the base is made 0600 before SQLite opens it, and a
// base (or its companions) left readable by an older version is tightened here.
void reserverAuProprietaire(const std::string& chemin, bool creer) {
    for (const char* suffixe : {"", "-wal", "-shm"}) {
        bool principal = *suffixe == '\0';
        int drapeaux = O_RDONLY | O_CLOEXEC | O_NOCTTY | (creer && principal ? O_CREAT : 0);
        int fd = ::open((chemin + suffixe).c_str(), drapeaux, 0600);
        if (fd < 0) continue; // SQLite says why when it cannot open the base itself
        struct stat etat {};
        if (fstat(fd, &etat) == 0 && S_ISREG(etat.st_mode) && (etat.st_mode & 077) != 0)
            fchmod(fd, etat.st_mode & 0700);
        ::close(fd);
    }
}

[[noreturn]] void echec(sqlite3* base, const std::string& quoi) {
    throw ErreurBase(quoi + " : " + (base ? sqlite3_errmsg(base) : "mémoire épuisée"));
}

} // namespace

Requete::Requete(sqlite3* base_, sqlite3_stmt* instruction_, bool* occupee_)
    : base(base_), instruction(instruction_), occupee(occupee_) {}

Requete::~Requete() {
    if (occupee) {
        sqlite3_reset(instruction);
        sqlite3_clear_bindings(instruction);
        *occupee = false;
    } else {
        sqlite3_finalize(instruction);
    }
}

void Requete::lier(std::int64_t valeur) {
    if (sqlite3_bind_int64(instruction, prochain++, valeur) != SQLITE_OK) echec(base, "liaison");
}

void Requete::lier(double valeur) {
    if (sqlite3_bind_double(instruction, prochain++, valeur) != SQLITE_OK) echec(base, "liaison");
}

void Requete::lier(std::string_view valeur) {
    if (sqlite3_bind_text64(instruction, prochain++, valeur.data(), valeur.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8) != SQLITE_OK)
        echec(base, "liaison");
}

void Requete::lier(std::nullopt_t) {
    if (sqlite3_bind_null(instruction, prochain++) != SQLITE_OK) echec(base, "liaison");
}

bool Requete::ligne() {
    int resultat = sqlite3_step(instruction);
    if (resultat == SQLITE_ROW) return true;
    if (resultat == SQLITE_DONE) return false;
    echec(base, "requête");
}

void Requete::executer() {
    while (ligne()) {
    }
}

bool Requete::nulle(int colonne) const {
    return sqlite3_column_type(instruction, colonne) == SQLITE_NULL;
}

std::int64_t Requete::entier(int colonne) const {
    return sqlite3_column_int64(instruction, colonne);
}

double Requete::reel(int colonne) const {
    return sqlite3_column_double(instruction, colonne);
}

std::string Requete::texte(int colonne) const {
    const auto* octets = sqlite3_column_text(instruction, colonne);
    if (!octets) return {};
    return {reinterpret_cast<const char*>(octets),
            static_cast<std::size_t>(sqlite3_column_bytes(instruction, colonne))};
}

std::optional<std::string> Requete::texteOuRien(int colonne) const {
    if (nulle(colonne)) return std::nullopt;
    return texte(colonne);
}

std::optional<std::int64_t> Requete::entierOuRien(int colonne) const {
    if (nulle(colonne)) return std::nullopt;
    return entier(colonne);
}

Base::Base(const std::string& chemin, Ouverture ouverture) {
    reserverAuProprietaire(chemin, ouverture == Ouverture::creer);
    int drapeaux = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    if (ouverture == Ouverture::creer) drapeaux |= SQLITE_OPEN_CREATE;
    if (sqlite3_open_v2(chemin.c_str(), &base, drapeaux, nullptr) != SQLITE_OK) {
        std::string message = base ? sqlite3_errmsg(base) : "mémoire épuisée";
        sqlite3_close(base);
        base = nullptr;
        throw ErreurBase("impossible d'ouvrir la base " + chemin + " : " + message);
    }
    // A parents' command and the server write the same file at the same moment; each write is
    // short, so waiting a few seconds for the lock is always enough.
    sqlite3_busy_timeout(base, 5000);
    try {
        executer("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;");
    } catch (const ErreurBase& e) {
        sqlite3_close(base);
        base = nullptr;
        throw ErreurBase(chemin + " n'est pas une base utilisable (" + e.what() + ")");
    }
}

Base::~Base() {
    for (auto& [sql, preparee] : preparees)
        sqlite3_finalize(preparee.instruction);
    sqlite3_close(base);
}

Requete Base::requete(std::string_view sql) {
    auto trouvee = preparees.find(std::string(sql));
    if (trouvee != preparees.end() && !trouvee->second.occupee) {
        trouvee->second.occupee = true;
        return Requete(base, trouvee->second.instruction, &trouvee->second.occupee);
    }
    sqlite3_stmt* instruction = nullptr;
    if (sqlite3_prepare_v2(base, sql.data(), static_cast<int>(sql.size()), &instruction, nullptr) !=
        SQLITE_OK)
        echec(base, "préparation de « " + std::string(sql) + " »");
    if (trouvee != preparees.end()) return Requete(base, instruction, nullptr);
    auto [place, _] = preparees.emplace(std::string(sql), Preparee{instruction, true});
    return Requete(base, instruction, &place->second.occupee);
}

void Base::executer(const char* sql) {
    char* erreur = nullptr;
    if (sqlite3_exec(base, sql, nullptr, nullptr, &erreur) != SQLITE_OK) {
        std::string message = erreur ? erreur : sqlite3_errmsg(base);
        sqlite3_free(erreur);
        throw ErreurBase(message);
    }
}

std::int64_t Base::derniereInsertion() const {
    return sqlite3_last_insert_rowid(base);
}

int Base::changements() const {
    return sqlite3_changes(base);
}

bool Base::dansTransaction() const {
    return sqlite3_get_autocommit(base) == 0;
}

Transaction::Transaction(Base& base_) : base(base_), exterieure(base_.dansTransaction()) {
    if (!exterieure) base.executer("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (exterieure || finie) return;
    try {
        base.executer("ROLLBACK");
    } catch (const ErreurBase&) {
        // SQLite may already have rolled back by itself after an I/O error.
    }
}

void Transaction::valider() {
    if (exterieure) return;
    base.executer("COMMIT");
    finie = true;
}

} // namespace tavi::famille
