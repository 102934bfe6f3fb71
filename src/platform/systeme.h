#pragma once

#include <optional>
#include <string>

namespace tavi {

// What the agent tells the server about the machine it runs on. Any thread: the answers read
// a small file or two and keep nothing; the heartbeat asks every 30 s at most.
class Systeme {
public:
    virtual ~Systeme() = default;

    // The platform's name in the heartbeat: "linux", "macos".
    virtual std::string plateforme() const = 0;
    // The operating system and its version, for the parents ("Debian GNU/Linux 12 (bookworm)").
    virtual std::string description() const = 0;
    // The computer's name as its owner knows it; absent when it has none.
    virtual std::optional<std::string> nomOrdinateur() const = 0;
};

} // namespace tavi
