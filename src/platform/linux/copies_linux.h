#pragma once

#include "platform/boucle.h"
#include "platform/copies.h"
#include "platform/linux/bus_sd.h"

#include <memory>

namespace tavi {

std::unique_ptr<Copies> copiesDeSession(Boucle& boucle, BusSd& session);

} // namespace tavi
