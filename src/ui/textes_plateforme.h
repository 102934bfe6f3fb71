#pragma once

namespace tavi::TextesPlateforme {

// The texts that name the system's own places and browsers, in the wording of the platform the
// program is built for (one .cpp per platform, chosen by CMake). Each is a French lookup key.

// The wake line of a browser the site filter cannot watch.
const char* navigateurIllisible();
// The wake line when the system refuses to let the agent read the pages' addresses.
const char* lectureRefusee();

// The button that opens the place above.
const char* boutonReglages();

// Opens the system's settings where reading the pages' addresses is allowed, where the desktop
// has such a place; otherwise does nothing.
void ouvrirReglagesLecture();

} // namespace tavi::TextesPlateforme
