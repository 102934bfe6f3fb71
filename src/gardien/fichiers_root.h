#pragma once

#include "commun/attendu.h"

#include <string>
#include <sys/types.h>

namespace tavi {

// The guardian's files: trusted only when root owns them and nobody else may write them.

// Why a file was not read: names the file and the reason.
struct RefusFichier {
    std::string message;
};

// The content of `chemin`, read without following a link, at most `tailleMax` bytes. An error
// names the file and the reason (not root's, writable by others, `modeExact` not met...).
// `modeExact` < 0: any mode without write for group and others.
Attendu<std::string, RefusFichier> lireFichierRoot(const std::string& chemin, std::size_t tailleMax,
                                                   int modeExact = -1);

// Writes `octets` to `chemin` in one step: a temporary file in the same folder, synced, given
// `mode`, then renamed over it.
Attendu<bool, std::string> remplacerFichier(const std::string& chemin, const std::string& octets,
                                            mode_t mode);

// The folder exists as root's 0700 folder, or is made so.
Attendu<bool, std::string> dossierRoot(const std::string& chemin);

} // namespace tavi
