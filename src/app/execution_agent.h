#pragma once

namespace tavi {

// Runs the agent of this session with no window: the engine on the Qt loop, its state on
// standard output as one line of JSON per change (see SortieEtat), the log on standard error.
//
// SIGTERM or SIGINT ends it with status 0: a paired agent first tells the server it stops,
// waiting at most 4 s for the answer; an unpaired one ends at once; a second signal ends it at
// once. The process leaves with `_Exit`, so that no keyring or network call still running on
// the background pool holds it or is left with destroyed objects.
//
// Call SignauxArret::bloquer() before any thread starts. Never returns.
[[noreturn]] void executerSansInterface(int argc, char** argv);

// The same agent with its windows, on the session's display (X11 or Wayland): the veil covers
// the screens when the computer rests. Nothing is printed. Signals end it the same way.
[[noreturn]] void executerAvecInterface(int argc, char** argv);

} // namespace tavi
