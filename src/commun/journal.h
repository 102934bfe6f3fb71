#pragma once

#include <string_view>

namespace tavi {

// One line in the agent's log (standard error, which the session's journal collects). Kept for
// the rare events an administrator must be able to find: a store set aside, a missing keyring.
void journaliser(std::string_view ligne);

} // namespace tavi
