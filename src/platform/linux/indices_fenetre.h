#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tavi {

// What a top-level window tells about the application that drew it (read from the X server).
// Empty texts are properties the window does not set.
struct IndicesFenetre {
    std::int64_t pid = 0; // _NET_WM_PID, 0 when absent
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
