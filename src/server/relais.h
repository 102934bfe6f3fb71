#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tavi {

// The guardian's relay: a Unix socket of the root service that holds the family link. When it
// is there, the agent and `tavi` send every request to it instead of the family server; the
// guardian adds the token, which never reaches the child's account.

// Where the relay listens; TAVI_RELAIS names another place (the guardian passes its own to the
// agent it starts). The child gains nothing from changing it: a copy that talks elsewhere is
// not the guardian's agent, and has no token.
inline constexpr std::string_view cheminRelaisParDefaut = "/run/tavi-home/relais";
std::string cheminRelais();
// `cheminRelais()` when something is there (a stale or broken relay included: the requests then
// fail, they never fall back to the family server's address); absent without a guardian.
std::optional<std::filesystem::path> relaisPresent();

// The base address the agent gives its requests when they go through the relay: the host is
// never resolved, the guardian forwards the path to the family server it was configured with.
inline constexpr std::string_view baseRelais = "http://tavi-gardien";

// What the agent stores where it stored the token: the guardian answers a pairing with this
// in place of the real one, and puts the real one on every request it forwards.
inline constexpr std::string_view jetonGardien = "gardien";

// The request that a copy of the agent keeps open on the relay to say it runs. The guardian
// answers 200 with one line, "agent" (the copy it started) or "copie" (any other), then keeps
// the connection; the copy writes one '\n' every `signeDeVieMs` as a sign of life.
inline constexpr std::string_view cheminPresence = "/gardien/presence";
inline constexpr int signeDeVieMs = 2000;
// The guardian's own state, for `tavi-gardien etat` (root only).
inline constexpr std::string_view cheminEtatGardien = "/gardien/etat";

} // namespace tavi
