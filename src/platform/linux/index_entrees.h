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

    // Reads every data folder's `applications` tree. The first folder holding an id wins, so a
    // user's entry shadows the system's, and a user's entry with Hidden=true removes the id.
    // Only Type=Application entries are kept; the ones a menu would not list serve to identify
    // running applications all the same.
    static std::shared_ptr<const IndexEntrees> charger(const EnvironnementXdg& environnement);

    // Every entry, in identifier order.
    const std::vector<EntreeIndexee>& entrees() const { return entrees_; }
    const EntreeIndexee* parIdentifiant(std::string_view identifiant) const;
    const EntreeIndexee* parEmplacement(std::string_view fichier) const;

    // The application that drew a window, from the surest clue to the weakest: the process's
    // Flatpak, its Snap, the window's GTK application id, an entry's StartupWMClass, an entry
    // id equal to WM_CLASS, the program the process runs; else a name made from WM_CLASS.
    // Absent when the window tells nothing. Reads a few small files of /proc, which the kernel
    // answers from memory; a caller asked every tick keeps the answer per window.
    std::optional<IdentiteAppli> identifier(const IndicesFenetre& indices) const;

private:
    using Table = std::map<std::string, std::size_t, std::less<>>;

    const EntreeIndexee* chercher(const Table& table, std::string_view cle) const;
    std::optional<IdentiteAppli> identite(const EntreeIndexee* entree) const;
    const EntreeIndexee* snapDuCgroup(const std::vector<std::string>& unites) const;
    void indexer();

    std::vector<EntreeIndexee> entrees_;
    Table parIdentifiant_;
    Table parIdentifiantMinuscule_;
    Table parEmplacement_;
    Table parClasseWm_;
    Table parProgramme_;
    Table parFlatpak_;
    std::filesystem::path racineProc_ = "/proc";
};

// The name of the program a command line runs, looking through launchers that only pass
// control on (env with its assignments, nice, interpreters such as python3 or sh, which run
// their first argument), so that a Python application is known by its script and not by
// python3. Absent when the line runs nothing that names an application (a bare interpreter,
// flatpak, bwrap, xdg-open).
std::optional<std::string> programmeLance(const std::vector<std::string>& arguments);

} // namespace tavi
