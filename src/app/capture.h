#pragma once

#include <string>

namespace tavi {

// `tavi-home --capture DOSSIER`: draws every variant of the veil (each cause, with and without a
// wake line, with a message, with the duration choices open, with the piggy bank) on a small
// and a large high-density screen, and every element of the visual kit, to PNG files in
// `dossier`, created if needed, then gives the status to exit with: 0, or 2 with a message
// when the folder cannot be written. Needs no display: Qt draws offscreen.
int capturer(const std::string& dossier, int argc, char** argv);

} // namespace tavi
