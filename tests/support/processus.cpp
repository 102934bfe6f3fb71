#include "support/processus.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace tavi::test {

namespace {

// Starts the program with its standard input, output and error on the given descriptors (-1:
// inherited); every descriptor in `fermer` is closed in the child.
int lancer(const std::vector<std::string>& arguments,
           const std::map<std::string, std::string>& environnement, std::vector<int> redirections,
           const std::vector<int>& fermer) {
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork");
    if (pid > 0) return pid;
    for (int fd = 0; fd < 3; ++fd)
        if (redirections[fd] >= 0) dup2(redirections[fd], fd);
    for (int fd : fermer)
        close(fd);
    for (const auto& [nom, valeur] : environnement)
        setenv(nom.c_str(), valeur.c_str(), 1);
    std::vector<char*> argv;
    for (const auto& a : arguments)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

int statutDe(int pid) {
    int statut = 0;
    waitpid(pid, &statut, 0);
    return WIFEXITED(statut) ? WEXITSTATUS(statut) : 128 + WTERMSIG(statut);
}

} // namespace

Sortie executer(const std::vector<std::string>& arguments, const std::string& entree,
                const std::map<std::string, std::string>& environnement) {
    // Files rather than pipes: nothing to pump while it runs, and a program that leaves a
    // child holding its output (gio launch) does not keep us waiting.
    FILE* fichiers[3] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};
    for (FILE* f : fichiers)
        if (!f) throw std::runtime_error("tmpfile");
    std::fwrite(entree.data(), 1, entree.size(), fichiers[0]);
    std::fflush(fichiers[0]);
    std::rewind(fichiers[0]);
    Sortie sortie;
    sortie.statut =
        statutDe(lancer(arguments, environnement,
                        {fileno(fichiers[0]), fileno(fichiers[1]), fileno(fichiers[2])}, {}));
    std::string* cibles[3] = {nullptr, &sortie.out, &sortie.err};
    for (int i = 0; i < 3; ++i) {
        std::rewind(fichiers[i]);
        char tampon[4096];
        for (std::size_t n; cibles[i] && (n = std::fread(tampon, 1, sizeof tampon, fichiers[i]));)
            cibles[i]->append(tampon, n);
        std::fclose(fichiers[i]);
    }
    return sortie;
}

Processus::Processus(const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environnement) {
    int tube[2];
    if (pipe(tube)) throw std::runtime_error("pipe");
    pid_ = lancer(arguments, environnement, {-1, tube[1], -1}, {tube[0], tube[1]});
    close(tube[1]);
    sortie_ = tube[0];
}

Processus::~Processus() {
    arreter();
    if (sortie_ >= 0) close(sortie_);
}

std::string Processus::ligne(int secondes) {
    while (tampon_.find('\n') == std::string::npos) {
        pollfd p{sortie_, POLLIN, 0};
        char octets[4096];
        if (poll(&p, 1, secondes * 1000) <= 0) return "";
        const ssize_t n = read(sortie_, octets, sizeof octets);
        if (n <= 0) return "";
        tampon_.append(octets, static_cast<std::size_t>(n));
    }
    const auto fin = tampon_.find('\n');
    std::string resultat = tampon_.substr(0, fin);
    tampon_.erase(0, fin + 1);
    return resultat;
}

int Processus::arreter() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    const int statut = statutDe(pid_);
    pid_ = -1;
    return statut;
}

} // namespace tavi::test
