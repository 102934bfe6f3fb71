#pragma once

#include <string>

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

// The menu entry, and the welcome window's step, that let the agent start with the session.
const char* laisserOuvrir();
const char* etapeDemarrage();
// Opens the desktop's list of applications started with the session, where it has one.
void ouvrirReglagesDemarrage();

// The tip shown while the agent runs from outside an installed location, and that test.
const char* conseilInstallation();
bool emplacementInstalle(const std::string& executable);

// Where the child finds the agent once it is ready, and what to do where the desktop shows no
// icon.
const char* ouSeTrouve();
const char* sansIcone();

// How the site filter and history read the pages' addresses, in what the parents can see.
const char* lectureAdresses();

} // namespace tavi::TextesPlateforme
