#include "support/processus.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace tavi::test {

Sortie executer(const std::vector<std::string>& arguments, const std::string& entree,
                const std::map<std::string, std::string>& environnement) {
    std::array<int, 2> in{}, out{}, err{};
    if (pipe(in.data()) || pipe(out.data()) || pipe(err.data())) throw std::runtime_error("pipe");
    std::signal(SIGPIPE, SIG_IGN);
    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork");
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
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
    close(in[0]);
    close(out[1]);
    close(err[1]);

    Sortie sortie;
    std::size_t ecrit = 0;
    if (entree.empty()) close(in[1]);
    bool entreeOuverte = !entree.empty();
    int ouverts = 2;
    while (ouverts > 0 || entreeOuverte) {
        std::vector<pollfd> fds = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
        if (entreeOuverte) fds.push_back({in[1], POLLOUT, 0});
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) break;
        for (std::size_t i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
            char tampon[4096];
            ssize_t n = read(fds[i].fd, tampon, sizeof tampon);
            if (n > 0)
                (i == 0 ? sortie.out : sortie.err).append(tampon, static_cast<std::size_t>(n));
            else {
                close(fds[i].fd);
                (i == 0 ? out[0] : err[0]) = -1;
                --ouverts;
            }
        }
        if (entreeOuverte && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t n = write(in[1], entree.data() + ecrit, entree.size() - ecrit);
            if (n > 0) ecrit += static_cast<std::size_t>(n);
            if (n <= 0 || ecrit == entree.size()) {
                close(in[1]);
                entreeOuverte = false;
            }
        }
        if (out[0] < 0 && err[0] < 0) ouverts = 0;
    }
    int statut = 0;
    waitpid(pid, &statut, 0);
    sortie.statut = WIFEXITED(statut) ? WEXITSTATUS(statut) : 128 + WTERMSIG(statut);
    return sortie;
}

Processus::Processus(const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environnement) {
    int tube[2];
    if (pipe(tube)) throw std::runtime_error("pipe");
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork");
    if (pid_ == 0) {
        dup2(tube[1], 1);
        close(tube[0]);
        close(tube[1]);
        for (const auto& [nom, valeur] : environnement) setenv(nom.c_str(), valeur.c_str(), 1);
        std::vector<char*> argv;
        for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
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
        if (poll(&p, 1, secondes * 1000) <= 0) return "";
        char octets[4096];
        ssize_t n = read(sortie_, octets, sizeof octets);
        if (n <= 0) return "";
        tampon_.append(octets, static_cast<std::size_t>(n));
    }
    auto fin = tampon_.find('\n');
    std::string resultat = tampon_.substr(0, fin);
    tampon_.erase(0, fin + 1);
    return resultat;
}

int Processus::arreter() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    int statut = 0;
    waitpid(pid_, &statut, 0);
    pid_ = -1;
    return WIFEXITED(statut) ? WEXITSTATUS(statut) : 128 + WTERMSIG(statut);
}

} // namespace tavi::test
