#pragma once

#include "platform/linux/confiance_fichiers.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tavi {

// What the desktop entries' lookup depends on, as the environment states it: the variables'
// texts as they are (empty when unset), and where to find the running processes.
struct EnvironnementXdg {
    std::string maison;        // $HOME
    std::string donneesMaison; // $XDG_DATA_HOME
    std::string donnees;       // $XDG_DATA_DIRS
    std::string bureauCourant; // $XDG_CURRENT_DESKTOP
    std::string chemins;       // $PATH
    std::string locale;        // the first set of $LC_ALL, $LC_MESSAGES, $LANG
    std::filesystem::path racineProc = "/proc";
    // Folders the system and its package systems put entries in, searched after the XDG ones
    // whatever $XDG_DATA_DIRS says: the child could leave the system's own out of it.
    std::vector<std::filesystem::path> dossiersExportes;
    // The system's Flatpak installation, whose applications run from their sandbox's /app.
    std::filesystem::path installationFlatpak = "/var/lib/flatpak";
    // Which entries and programs the system wrote.
    ConfianceFichiers confiance;
    friend bool operator==(const EnvironnementXdg&, const EnvironnementXdg&) = default;

    // This process's environment, with the system's data folders and its Flatpak and Snap
    // export folders.
    static EnvironnementXdg duProcessus();

    // The data folders, best first: $XDG_DATA_HOME (else ~/.local/share), each of
    // $XDG_DATA_DIRS (else /usr/local/share and /usr/share), the user's Flatpak exports, then
    // `dossiersExportes`; relative paths are ignored, as the XDG rules require, and each folder
    // comes once.
    std::vector<std::filesystem::path> dossiersDonnees() const;
    // $XDG_CURRENT_DESKTOP's desktop names, in order.
    std::vector<std::string> bureaux() const;
    // $PATH's absolute folders, in order.
    std::vector<std::filesystem::path> dossiersProgrammes() const;
};

} // namespace tavi
