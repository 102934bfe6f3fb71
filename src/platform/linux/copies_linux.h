#pragma once

#include "platform/copies.h"

#include <memory>

namespace tavi {

class Boucle;
class BusSd;

// The agent's copies for this session: on the session bus when it is connected now, else on a
// local socket in $XDG_RUNTIME_DIR/tavi-home, or in the state folder without a runtime folder.
// Every copy of a session sees the same environment, so all of them make the same choice.
// `session` must outlive the result.
std::unique_ptr<Copies> copiesDeSession(Boucle& boucle, BusSd& session);

} // namespace tavi
