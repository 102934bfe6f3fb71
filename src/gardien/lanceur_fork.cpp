#include "gardien/lanceur.h"

#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavi {

namespace {

// The child's side, between fork and exec: system calls only (the guardian may run threads,
// and another thread may have held the allocator's lock at the fork). Any failure to become
// the user ends the child before it runs anything.
[[noreturn]] void devenirAgent(const Lancement& l, char* const argv[], char* const envp[]) {
    sigset_t aucun;
    sigemptyset(&aucun);
    sigprocmask(SIG_SETMASK, &aucun, nullptr);
    struct sigaction defaut {};
    defaut.sa_handler = SIG_DFL;
    for (int s = 1; s < NSIG; ++s)
        sigaction(s, &defaut, nullptr);

    if (setsid() < 0) _exit(126);
    const int vide = open("/dev/null", O_RDWR);
    if (vide < 0 || dup2(vide, STDIN_FILENO) < 0 || dup2(vide, STDOUT_FILENO) < 0) _exit(126);
    // Nothing of the guardian's stays open in the agent: the relay's socket, the state files,
    // the bus. Standard error goes on to the guardian's log.
    if (close_range(3, ~0U, 0) != 0) {
        rlimit limite{};
        const rlim_t haut = getrlimit(RLIMIT_NOFILE, &limite) == 0 ? limite.rlim_cur : 65536;
        for (rlim_t fd = 3; fd < haut && fd < 1024 * 1024; ++fd)
            close(static_cast<int>(fd));
    }

    if (setgroups(l.groupes.size(), l.groupes.data()) != 0) _exit(126);
    if (setgid(l.gid) != 0 || setuid(l.uid) != 0) _exit(126);
    // Root must be out of reach for good, not only set aside.
    if (l.uid != 0 && (setuid(0) == 0 || getuid() != l.uid || geteuid() != l.uid)) _exit(126);
    umask(022);
    if (chdir(l.maison.c_str()) != 0 && chdir("/") != 0) _exit(126);
    execve(l.executable.c_str(), argv, envp);
    _exit(127);
}

} // namespace

std::optional<AgentLance> LanceurFork::lancer(const Lancement& lancement) {
    std::vector<char*> argv{const_cast<char*>(lancement.executable.c_str()), nullptr};
    std::vector<char*> envp;
    for (const auto& variable : lancement.environnement)
        envp.push_back(const_cast<char*>(variable.c_str()));
    envp.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return std::nullopt;
    if (pid == 0) devenirAgent(lancement, argv.data(), envp.data());
    return AgentLance{pid, true};
}

} // namespace tavi
