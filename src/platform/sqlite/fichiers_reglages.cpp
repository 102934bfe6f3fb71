#include "platform/sqlite/fichiers_reglages.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

namespace tavi {

namespace fs = std::filesystem;

namespace {

std::string horodatage() {
    const std::time_t instant =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm utc{};
    gmtime_r(&instant, &utc);
    char texte[32];
    std::strftime(texte, sizeof texte, "%Y%m%dT%H%M%SZ", &utc);
    return texte;
}

bool existe(const fs::path& chemin) {
    std::error_code ignore;
    return fs::exists(fs::symlink_status(chemin, ignore));
}

// SQLite finds a database's journal by appending "-wal" and "-shm" to its name, so the set-aside
// copy keeps its companions under the same scheme and can be opened as it was.
bool libre(const fs::path& base) {
    return !existe(base) && !existe(base.string() + "-wal") && !existe(base.string() + "-shm");
}

std::optional<std::string> renommer(const fs::path& de, const fs::path& vers) {
    std::error_code erreur;
    fs::rename(de, vers, erreur);
    if (erreur) return erreur.message();
    return std::nullopt;
}

} // namespace

MiseDeCote mettreDeCote(const fs::path& fichier) {
    const std::string racine = fichier.string() + ".illisible-" + horodatage();
    fs::path aCote = racine;
    for (int n = 2; !libre(aCote); ++n)
        aCote = racine + "-" + std::to_string(n);

    if (auto erreur = renommer(fichier, aCote)) return {aCote, *erreur};
    for (const char* compagnon : {"-wal", "-shm"}) {
        const fs::path source = fichier.string() + compagnon;
        if (!existe(source)) continue;
        // A journal left beside the fresh store would be replayed into it.
        if (auto erreur = renommer(source, aCote.string() + compagnon)) return {aCote, *erreur};
    }
    return {aCote, {}};
}

} // namespace tavi
