#pragma once

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace tavi {

// Ends the process with `statut` once standard output and error are flushed, without running
// any destructor: work still running on the background pool (a keyring that hangs, an exchange
// with the server) neither holds the exit nor finds the objects it uses destroyed under it.
// What the store committed is on disk already.
[[noreturn]] inline void finirProcessus(int statut) {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    std::_Exit(statut);
}

} // namespace tavi
