#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tavi {

// Creates `dossier` and its missing parents readable by the user alone: the defaults hold the
// installation identifier and the child's first name, and the secret store's fallback folder
// lies in the same state folder. Both stores make their folders here, so whichever comes first
// makes the state folder 0700. Absent on success, else the reason.
std::optional<std::string> creerDossierPrive(const std::filesystem::path& dossier);

struct MiseDeCote {
    std::filesystem::path chemin; // where the file now lies
    std::string erreur;           // empty on success
};

// Renames an unusable database file aside, with its -wal and -shm, under a timestamped name
// that no existing file has. Nothing is ever deleted: the family may want it examined.
MiseDeCote mettreDeCote(const std::filesystem::path& fichier);

} // namespace tavi
