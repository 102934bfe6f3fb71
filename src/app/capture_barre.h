#pragma once

#include <filesystem>

namespace tavi {

// Draws the status item's menu in each of its states (the piggy bank's and the request's
// submenus beside it) and a sheet of its icons at 16, 22 and 24 px, at natural and at double
// density, on a light and a dark panel, to PNG files in `dossier`, and prints their paths.
// False, with a message, when a file cannot be written. Needs a QApplication; drawn offscreen.
bool capturerBarre(const std::filesystem::path& dossier);

} // namespace tavi
