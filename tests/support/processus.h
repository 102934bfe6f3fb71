#pragma once

#include <map>
#include <string>
#include <vector>

namespace tavi::test {

struct Sortie {
    int statut = -1; // exit status, or 128 + signal
    std::string out;
    std::string err;
};

// Runs a program to its end with `entree` on its standard input and the current environment
// plus `environnement`; captures both outputs.
Sortie executer(const std::vector<std::string>& arguments, const std::string& entree = "",
                const std::map<std::string, std::string>& environnement = {});

} // namespace tavi::test
