#pragma once

#include "platform/linux/entree_bureau.h"
#include "platform/linux/environnement_xdg.h"
#include "platform/linux/indices_fenetre.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavi {

// One application's desktop entry, as the index keeps it.
struct EntreeIndexee {
    std::string identifiant; // the desktop-file id: "org.gnome.Nautilus", "kde-dolphin"
    std::filesystem::path fichier;
    EntreeBureau entree;
    std::optional<std::string> categorie; // "public.app-category.*", from Categories
    bool visible = false;                 // listed by a menu of the current desktop
    bool systeme = false;                 // written by the system (ConfianceFichiers)
};

// The application entries of the XDG data folders, by desktop-file id. Built once by
// `charger` (blocking: reads the disk) and never changed afterwards, so one index is shared
// between threads as a `std::shared_ptr<const IndexEntrees>`.
class IndexEntrees {
public:
    // A folder holding more files than this is not a real one: the scan of its `applications`
    // tree stops there, as the whole scan stops after `entreesMax` entries read.
    static constexpr std::size_t fichiersMaxParDossier = 4000;
    static constexpr std::size_t entreesMax = 8000;

    IndexEntrees() = default;

    // Reads every data folder's `applications` tree. An id the system has an entry for is the
    // system's entry, wherever the child's folders come in the search order: a user's entry
    // never renames, re-categorises or hides a system one (Hidden=true in the system's own
    // entry does remove it). Among entries of one kind, the first folder holding the id wins.
    // Only Type=Application entries are kept; the ones a menu would not list serve to identify
    // running applications all the same.
    static std::shared_ptr<const IndexEntrees> charger(const EnvironnementXdg& environnement);

    // Every entry, in identifier order.
    const std::vector<EntreeIndexee>& entrees() const { return entrees_; }
    const EntreeIndexee* parIdentifiant(std::string_view identifiant) const;
    const EntreeIndexee* parEmplacement(std::string_view fichier) const;

    // The application of a window's process (`indices.pid`, which the X server gives), from
    // what the system wrote, never from what the client says of itself:
    // - a Flatpak sandbox whose info file the system wrote, or whose /app program is the very
    //   file the system's installation of the application it names holds: its application id;
    // - a program that is a file of the system (ConfianceFichiers): the system entry that runs
    //   it, the window's class or GTK id choosing only among the entries that run that very
    //   program; without one, the program's name. A script run by an interpreter
    //   (python3 jeu.py) is named by the script, which must be a file of the system too;
    // - anything else (a program or script the child could have written, an executable
    //   deleted or replaced since it started) is an application of its own, named by its
    //   path: an identifier that starts with '/', which no entry and no rule list can hold.
    // Absent without a process, or when its executable cannot be read (another user's).
    // Reads a few small files of /proc; a caller asked every tick keeps the answer per window.
    std::optional<IdentiteAppli> identifier(const IndicesFenetre& indices) const;

private:
    using Table = std::map<std::string, std::size_t, std::less<>>;

    const EntreeIndexee* chercher(const Table& table, std::string_view cle) const;
    std::optional<IdentiteAppli> identite(const EntreeIndexee* entree) const;
    const EntreeIndexee* parProgramme(const std::string& programme,
                                      const IndicesFenetre& indices) const;
    void indexer();

    std::vector<EntreeIndexee> entrees_;
    Table parIdentifiant_;
    Table parIdentifiantMinuscule_;
    Table parEmplacement_;
    Table parClasseWm_;
    Table parProgramme_;
    Table parFlatpak_;
    std::filesystem::path racineProc_ = "/proc";
    ConfianceFichiers confiance_;
    std::filesystem::path installationFlatpak_;
};

// The name of the program a command line runs, looking through launchers that only pass
// control on (env with its assignments, nice, interpreters such as python3 or sh, which run
// their first argument), so that a Python application is known by its script and not by
// python3. Absent when the line runs nothing that names an application (a bare interpreter,
// flatpak, bwrap, xdg-open).
std::optional<std::string> programmeLance(const std::vector<std::string>& arguments);

} // namespace tavi
