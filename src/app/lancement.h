#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavi {

// How the agent was asked to start. An option counts only when followed by as many values as
// it needs; otherwise it is ignored and the agent starts normally.
struct Lancement {
    std::optional<std::pair<std::string, std::string>> essaiApi; // server, code
    std::optional<std::string> capture;                          // folder
    bool sansInterface = false; // no window: the state goes to standard output
    // Asked what the program is or how to use it: it answers and ends, starting nothing.
    bool aide = false;    // --help, -h
    bool version = false; // --version
};

// What `--help` prints.
extern const char* const texteAide;

// The arguments are searched in order, the program's path included; the first match counts.
Lancement lireLancement(const std::vector<std::string>& arguments);

} // namespace tavi
