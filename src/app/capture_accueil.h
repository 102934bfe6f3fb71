#pragma once

#include <filesystem>

namespace tavi {

// Every step of the welcome window (the pairing code empty, refused and being sent; what the
// parents see; the login step; done) and every variant of the panel alone, to PNG files in
// `dossier`. Needs a QApplication; false when a file could not be written.
bool capturerAccueil(const std::filesystem::path& dossier);

} // namespace tavi
