#pragma once

#include "platform/applications.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tavi::ListeApplis {

// The installed applications the parents can pick from, for the heartbeat: never the agent
// nor one without a window, each identifier once (the first wins), at most 400, sorted by
// name the way the user's language sorts, ignoring case; ties go by identifier, so that the
// fingerprint does not change from one scan to the next.
//
// Blocking (it reads the disk through the port): background pool only. Keeps no state.
std::vector<ApplicationInstallee> lire(const Applications& applications);

// The records sent: [{"p": id, "n": name, "c": category}], "c" only when declared.
nlohmann::json enregistrements(const std::vector<ApplicationInstallee>& liste);

// "p|n|c" per record, joined with ";" (an absent category is empty). The whole text, not a
// hash: two lists have the same fingerprint exactly when they hold the same records in the
// same order.
std::string empreinte(const std::vector<ApplicationInstallee>& liste);

} // namespace tavi::ListeApplis
