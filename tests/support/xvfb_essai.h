#pragma once

// What the X11 test programs share: their own Xvfb, and a second X client that clicks. Include
// it last: X11's macros break the Qt headers that would follow.

#include "support/processus.h"

#include <QPoint>
#include <cstdlib>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace tavi::test {

// Starts an Xvfb with one screen of `ecran` ("WxHxD"), kept when its last client leaves, and
// points DISPLAY and Qt's platform at it, for the QApplication to come. Gives why it could not,
// or nothing, with the display's name in `affichage`.
inline std::string demarrerXvfb(std::optional<Processus>& xvfb, const std::string& ecran,
                                std::string& affichage) {
    if (access("/usr/bin/Xvfb", X_OK)) return "Xvfb missing (package xvfb)";
    xvfb.emplace(std::vector<std::string>{"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0",
                                          ecran, "-nolisten", "tcp", "-noreset"});
    const std::string numero = xvfb->ligne(20);
    if (numero.empty()) return "Xvfb did not start";
    affichage = ":" + numero;
    setenv("DISPLAY", affichage.c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    return {};
}

// A click of another X client at `point` (the screen's coordinates), through XTest: what the
// server delivers to a real user's click.
inline void cliquerX(Display* autre, QPoint point) {
    XTestFakeMotionEvent(autre, -1, point.x(), point.y(), CurrentTime);
    XTestFakeButtonEvent(autre, 1, True, CurrentTime);
    XTestFakeButtonEvent(autre, 1, False, CurrentTime);
    XSync(autre, False);
}

} // namespace tavi::test
