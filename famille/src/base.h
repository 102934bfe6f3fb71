#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace tavi::famille {

// A failure of SQLite itself (disk full, corrupt file, a lock held too long): never the
// client's fault, so the server answers it with a 500.
class ErreurBase : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One prepared statement in use. Values are bound in order with `avec`; the statement is reset
// when the object goes away, so a cached statement is ready for its next use.
class Requete {
public:
    Requete(sqlite3* base, sqlite3_stmt* instruction, bool* occupee);
    Requete(const Requete&) = delete;
    Requete& operator=(const Requete&) = delete;
    ~Requete();

    template <typename... T>
    Requete& avec(const T&... valeurs) {
        (lier(valeurs), ...);
        return *this;
    }

    // Steps once: true when a row is ready to be read.
    bool ligne();
    // Steps to the end, for statements that return nothing.
    void executer();

    bool nulle(int colonne) const;
    std::int64_t entier(int colonne) const;
    double reel(int colonne) const;
    std::string texte(int colonne) const;
    std::optional<std::string> texteOuRien(int colonne) const;
    std::optional<std::int64_t> entierOuRien(int colonne) const;

private:
    void lier(std::int64_t valeur);
    void lier(int valeur) { lier(static_cast<std::int64_t>(valeur)); }
    void lier(bool valeur) { lier(static_cast<std::int64_t>(valeur ? 1 : 0)); }
    void lier(double valeur);
    void lier(std::string_view valeur);
    void lier(const std::string& valeur) { lier(std::string_view(valeur)); }
    void lier(const char* valeur) { lier(std::string_view(valeur)); }
    void lier(std::nullopt_t);
    template <typename T>
    void lier(const std::optional<T>& valeur) {
        if (valeur)
            lier(*valeur);
        else
            lier(std::nullopt);
    }

    sqlite3* base;
    sqlite3_stmt* instruction;
    bool* occupee; // null for a statement made for one use only, finalised at the end
    int prochain = 1;
};

// One SQLite connection, in WAL mode, with its prepared statements kept for reuse: a heartbeat
// runs the same dozen statements every time, and preparing them again costs more than running.
class Base {
public:
    enum class Ouverture { creer, existante };

    Base(const std::string& chemin, Ouverture ouverture);
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    ~Base();

    Requete requete(std::string_view sql);
    void executer(const char* sql);
    std::int64_t derniereInsertion() const;
    int changements() const;
    bool dansTransaction() const;

private:
    struct Preparee {
        sqlite3_stmt* instruction;
        bool occupee = false;
    };
    sqlite3* base = nullptr;
    std::unordered_map<std::string, Preparee> preparees;
};

// BEGIN IMMEDIATE … COMMIT: takes the write lock at once, so two writers never both read and
// then fail to upgrade. Inside an open transaction it does nothing, so a store operation can
// be called alone or as part of a larger one. Rolled back unless `valider` was called.
class Transaction {
public:
    explicit Transaction(Base& base);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();
    void valider();

private:
    Base& base;
    bool exterieure;
    bool finie = false;
};

} // namespace tavi::famille
