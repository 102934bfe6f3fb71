#pragma once

#include "platform/reglages.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace tavi {

// The defaults store in one SQLite database: a table of (key, type, value), WAL with
// synchronous=NORMAL, so a crash of the agent loses nothing committed and a power cut at most
// what came after the last checkpoint (one is made at most a minute after a write).
//
// Opening never fails for the agent: a file that cannot be opened or is not a sound database
// is renamed aside (never deleted, with its -wal and -shm) and a fresh one takes its place; if
// even that fails, the store lives in memory for this run. Either event writes one log line.
//
// Values read are kept in memory for `fraicheur` (10 s by default) and values written from the
// moment they are committed: the engine reads the same few keys several times a second, and
// each read of the file costs a round of file locks. A change another process makes (`tavi
// reglage`) is therefore seen within that time rather than at once.
//
// Main thread only, like the port: it takes no lock.
class ReglagesSqlite : public Reglages {
public:
    struct EnMemoire {};
    // A private store that touches no file: the self-test modes must leave the real state alone.
    static constexpr EnMemoire enMemoire{};

    explicit ReglagesSqlite(const std::filesystem::path& fichier,
                            std::chrono::milliseconds fraicheur = std::chrono::seconds(10));
    explicit ReglagesSqlite(EnMemoire);
    ~ReglagesSqlite() override;

    ReglagesSqlite(const ReglagesSqlite&) = delete;
    ReglagesSqlite& operator=(const ReglagesSqlite&) = delete;

    std::optional<Valeur> lire(const std::string& cle) const override;
    void ecrire(const std::string& cle, const Valeur& valeur) override;
    void supprimer(const std::string& cle) override;

    // Groups nest with savepoints: an inner group that throws undoes only its own writes. An
    // exception thrown by `ecritures` undoes its writes and reaches the caller unchanged; it
    // is the caller's, not a failure of the store. If any write of the outer group fails, none
    // of them is kept.
    void grouper(const std::function<void()>& ecritures) override;

    // False when this run keeps its values in memory only (asked for, or the file was
    // unusable).
    bool persistant() const { return persiste; }

    // Writes given up since opening (disk full, store locked by another process too long, a
    // value the store cannot keep): counted for diagnostics, never raised.
    std::int64_t echecs() const;

private:
    bool ouvrir(const std::filesystem::path& fichier);
    void ouvrirEnMemoire();
    bool preparer();
    void fermer();
    void abandonner();
    bool executer(const char* sql);
    bool appliquer(sqlite3_stmt* requete);
    void checkpointSiDu();
    void retenir(const std::string& cle, std::optional<Valeur> valeur);
    void oublierEnAttente();

    struct Lu {
        std::optional<Valeur> valeur;
        std::chrono::steady_clock::time_point quand;
    };

    sqlite3* base = nullptr;
    sqlite3_stmt* requeteLire = nullptr;
    sqlite3_stmt* requeteEcrire = nullptr;
    sqlite3_stmt* requeteSupprimer = nullptr;
    bool persiste = false;
    int profondeurGroupe = 0;
    bool groupeEchoue = false;
    std::int64_t nombreEchecs = 0;
    std::chrono::steady_clock::time_point dernierCheckpoint;
    std::chrono::milliseconds fraicheur{0};
    mutable std::map<std::string, Lu, std::less<>> lus;
    // What the open group wrote: it reaches `lus` only once committed.
    std::map<std::string, std::optional<Valeur>, std::less<>> enAttente;
};

} // namespace tavi
