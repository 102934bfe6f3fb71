#pragma once

#include <filesystem>
#include <optional>

namespace tavi::Dossiers {

// The agent's state folder: $XDG_STATE_HOME/tavi-home, else ~/.local/state/tavi-home. A
// relative XDG_STATE_HOME is ignored, as the XDG rules require. The home folder comes from
// $HOME, else from the password database; absent when neither gives an absolute path.
std::optional<std::filesystem::path> etat();

// The defaults database in the state folder.
std::optional<std::filesystem::path> reglages();

} // namespace tavi::Dossiers
