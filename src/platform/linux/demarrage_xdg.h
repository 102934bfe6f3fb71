#pragma once

#include "platform/linux/demarrage_linux.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tavi {

// The login agent as an XDG autostart entry. The entry that counts is the user's
// (autostart/ of the user's configuration folder) when there is one, since it overrides the
// system's entry of the same name, else the first of the system's folders.
namespace DemarrageXdg {

inline constexpr const char* nomEntree = "com.tavi.home.desktop";

// The entry that starts `executable` as the agent.
std::string texteEntree(const std::filesystem::path& executable);

// Why `texte`, the text of an autostart entry, would not start `executable` as the agent;
// absent when it would. Only an entry that every desktop reads alike is trusted.
std::optional<std::string> pourquoiPasLaNotre(std::string_view texte,
                                              const std::filesystem::path& executable);

// Why the entry that counts will not start the agent at the next login; absent when it will.
std::optional<std::string> pourquoiInactif(const OptionsDemarrage& options);

// Writes the user's entry, unless the one that counts starts the agent already; what went
// wrong otherwise.
std::optional<std::string> enregistrer(const OptionsDemarrage& options);

// Removes the user's entry; where a system entry remains, writes a user entry that hides it.
void desenregistrer(const OptionsDemarrage& options);

} // namespace DemarrageXdg

} // namespace tavi
