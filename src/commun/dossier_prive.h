#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tavi {

// Creates `dossier` and its missing parents readable by the user alone, and makes `dossier`
// itself 0700 when it already existed wider (a copy of an older version made it so). The
// defaults hold the installation identifier and the child's first name, and the secret
// store's fallback file lies in the same state folder: both stores make their folders here,
// so whichever comes first, the state folder is private. Absent on success, else the reason.
std::optional<std::string> creerDossierPrive(const std::filesystem::path& dossier);

} // namespace tavi
