#pragma once

#include "platform/linux/demarrage_linux.h"

#include <filesystem>
#include <optional>
#include <string>

namespace tavi {

class GestionnaireSystemd;

// The login agent as a systemd user unit: its file, and what the user's manager says of it.
namespace DemarrageSystemd {

inline constexpr const char* nomUnite = "com.tavi.home.service";

// The unit that starts `executable` as the agent.
std::string texteUnite(const std::filesystem::path& executable);

// Whether the desktop session runs under the manager: graphical-session.target is active.
bool sessionGeree(GestionnaireSystemd& gestionnaire);

// Why the unit will not start the agent at the next login; absent when it will.
std::optional<std::string> pourquoiInactif(const OptionsDemarrage& options,
                                           GestionnaireSystemd& gestionnaire);

// Writes the unit, has the manager read it and enables it, without starting it; what went
// wrong otherwise. Nothing is done when it is registered already.
std::optional<std::string> enregistrer(const OptionsDemarrage& options,
                                       GestionnaireSystemd& gestionnaire);

// Disables and removes the unit; the files alone when the manager does not answer. Nothing,
// not even a call, when there is no unit of ours.
void desenregistrer(const OptionsDemarrage& options);

} // namespace DemarrageSystemd

} // namespace tavi
