#pragma once

#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace tavi {

// Whether the system wrote a file, so that what it says (a desktop entry's name and category,
// which program a running process is) may be believed: the file and every folder above it
// belong to `proprietaire` (root) and neither group nor others may write any of them. The
// child owns their home and can rename, link and rewrite everything in it; the system's
// folders they can only read.
//
// Blocking: a few lstat calls per path. Any thread.
struct ConfianceFichiers {
    // Folders above `racine` are not looked at; the system's answer is "/" (a test's, a folder
    // of its own).
    std::filesystem::path racine = "/";
    uid_t proprietaire = 0;
    friend bool operator==(const ConfianceFichiers&, const ConfianceFichiers&) = default;

    // `chemin` (absolute) names a regular file of the system, through system links only: each
    // link on the way is the system's, and so is every folder of the path it leads to.
    bool systeme(const std::filesystem::path& chemin) const;
    // The same of a folder.
    bool dossierSysteme(const std::filesystem::path& chemin) const;

    // The program process `processus` (a folder of /proc) runs, when it is a file of the
    // system that still stands at its path: that path. Absent when the executable cannot be
    // read (another user's process), was deleted or replaced since it started (the path now
    // names another file), or lies where the child could have put it.
    std::optional<std::filesystem::path>
    executableSysteme(const std::filesystem::path& processus) const;

    // Process `processus` runs the very file `fichier` (a path of ours, whatever its own mount
    // namespace shows).
    static bool execute(const std::filesystem::path& processus,
                        const std::filesystem::path& fichier);

private:
    // `chemin` and where its links lead, as `systeme` asks; absent when they fail, else the
    // path they lead to.
    std::optional<std::filesystem::path> cheminSur(const std::filesystem::path& chemin) const;
};

} // namespace tavi
