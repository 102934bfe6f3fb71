#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tavi {

// What root reads of a process in /proc. Every process of a child's account is the child's to
// rewrite (its memory holds its environment), so what comes from one is bounded and checked.
namespace Processus {

struct Etat {
    char lettre = '?';            // R, S, D, T (stopped), t (traced), Z (zombie), ...
    std::uint64_t debutTicks = 0; // starttime: with the pid, the process's identity
    pid_t parent = 0;
};

// The state line of `pid`; absent when no such process is there.
std::optional<Etat> etat(pid_t pid);

// The real uid of `pid`.
std::optional<uid_t> proprietaire(pid_t pid);

// The program `pid` runs, as the kernel names it (/proc/PID/exe).
std::optional<std::string> executable(pid_t pid);

// A start time in clock ticks since boot as epoch milliseconds.
std::int64_t debutMs(std::uint64_t debutTicks);

// The kernel's identifier of this boot, empty when unreadable.
std::string identifiantDemarrage();

// The values of `noms` in the environment `pid` holds: at most 64 KiB are read, and a value
// with a control character or longer than 4 KiB is left out.
std::map<std::string, std::string> environnement(pid_t pid, const std::vector<std::string>& noms);

// The processes of `uid` in logind's session `session` (the cgroup "session-ID.scope" under the
// user's slice), oldest pid first. Under a display manager the session's leader is often root's
// worker, whose environment names no X authority: the session's own programs do.
std::vector<pid_t> deLaSession(const std::string& session, uid_t uid);

} // namespace Processus

} // namespace tavi
