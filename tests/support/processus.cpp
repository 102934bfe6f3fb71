#include "support/processus.h"

#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
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
    int in[2], out[2], err[2];
    if (pipe(in) || pipe(out) || pipe(err)) throw std::runtime_error("pipe");
    std::signal(SIGPIPE, SIG_IGN);
    const int pid = lancer(arguments, environnement, {in[0], out[1], err[1]},
                           {in[0], in[1], out[0], out[1], err[0], err[1]});
    close(in[0]);
    close(out[1]);
    close(err[1]);
    // Written from a thread of its own: a program that answers before reading all its input
    // would otherwise block both sides.
    std::thread ecrivain([&] {
        for (std::size_t ecrit = 0; ecrit < entree.size();) {
            const ssize_t n = write(in[1], entree.data() + ecrit, entree.size() - ecrit);
            if (n <= 0) break;
            ecrit += static_cast<std::size_t>(n);
        }
        close(in[1]);
    });
    Sortie sortie;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* cibles[2] = {&sortie.out, &sortie.err};
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        poll(fds, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !fds[i].revents) continue;
            char tampon[4096];
            const ssize_t n = read(fds[i].fd, tampon, sizeof tampon);
            if (n > 0) {
                cibles[i]->append(tampon, static_cast<std::size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
            }
        }
    }
    ecrivain.join();
    sortie.statut = statutDe(pid);
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
