#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tavi {

// Replaces the file `nom` of `dossier` with `contenu` in one step: a temporary file of the same
// folder, `mode` whatever the umask, flushed to disk, then renamed over it. A reader sees the
// old file or the new one, never half of it, and a symbolic link planted at that name is
// replaced, not written through. The folder and its parents are made when missing.
//
// Absent on success, else a short technical description (paths and errno names, no text of the
// locale) for a log line.
std::optional<std::string> remplacerFichier(const std::filesystem::path& dossier,
                                            const std::string& nom, std::string_view contenu,
                                            mode_t mode);

// errno's symbolic name ("EACCES"), the same in every locale.
std::string nomErreur(int numero);

} // namespace tavi
