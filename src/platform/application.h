#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tavi {

// A running application as the desktop reports it. On Linux the identifier is the
// desktop-entry id ("org.mozilla.firefox") and the location is that entry's file; on macOS
// they are the bundle identifier and the bundle's path.
struct Application {
    std::optional<std::string> identifiant;
    std::optional<std::string> emplacement;
    std::string nom;
    std::int64_t pid = 0;
    friend bool operator==(const Application&, const Application&) = default;
};

} // namespace tavi
