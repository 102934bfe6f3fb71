#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tavi {

struct MiseDeCote {
    std::filesystem::path chemin; // where the file now lies
    std::string erreur;           // empty on success
};

// Renames an unusable database file aside, with its -wal and -shm, under a timestamped name
// that no existing file has. Nothing is ever deleted: the family may want it examined.
MiseDeCote mettreDeCote(const std::filesystem::path& fichier);

} // namespace tavi
