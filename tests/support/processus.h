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

// A program left running beside the test (a server): its output is read line by line, and it
// is stopped with SIGTERM when the object goes.
class Processus {
public:
    Processus(const std::vector<std::string>& arguments,
              const std::map<std::string, std::string>& environnement = {});
    ~Processus();
    Processus(const Processus&) = delete;
    Processus& operator=(const Processus&) = delete;

    // The next line of its standard output; empty when it ends or `secondes` pass first.
    std::string ligne(int secondes = 10);
    // SIGTERM, then its exit status (128 + signal when killed).
    int arreter();
    int pid() const { return pid_; }

private:
    int pid_ = -1;
    int sortie_ = -1;
    std::string tampon_;
};

} // namespace tavi::test
