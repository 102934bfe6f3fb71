#pragma once

#include "platform/systeme.h"

#include <optional>
#include <string>
#include <string_view>

namespace tavi {

// This Linux machine. Each answer is read when asked: they are asked rarely and an upgrade may
// change the description while the agent runs.
class SystemeLinux : public Systeme {
public:
    std::string plateforme() const override { return "linux"; }
    // The distribution as os-release names it; "Linux " and the kernel release when no
    // os-release file says anything.
    std::string description() const override;
    // The host name; absent when it is empty or "localhost", which name no machine in
    // particular.
    std::optional<std::string> nomOrdinateur() const override;
};

// What an os-release text says of the system: PRETTY_NAME, else NAME followed by VERSION_ID
// when there is one; absent when it has neither. Values may be quoted, as in a shell.
std::optional<std::string> descriptionOsRelease(std::string_view texte);

} // namespace tavi
