#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tavi {

// What the X server tells about the application that drew a top-level window: its client's
// process, and the texts the client set on the window (empty when it set none), which are its
// own words.
struct IndicesFenetre {
    std::int64_t pid = 0; // the client's process as the X server knows it, 0 when unknown
    std::string instance; // WM_CLASS, first part ("Navigator")
    std::string classe;   // WM_CLASS, second part ("firefox")
    std::string idGtk;    // _GTK_APPLICATION_ID ("org.gnome.Nautilus")
    friend bool operator==(const IndicesFenetre&, const IndicesFenetre&) = default;
};

// An application as the agent names it on Linux: its desktop-entry id, the entry's localised
// Name, and the entry's file.
struct IdentiteAppli {
    std::string identifiant;
    std::string nom;
    std::optional<std::string> emplacement;
    friend bool operator==(const IdentiteAppli&, const IdentiteAppli&) = default;
};

} // namespace tavi
