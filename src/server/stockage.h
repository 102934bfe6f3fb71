#pragma once

#include "platform/coffre.h"
#include "platform/reglages.h"
#include "rules/consigne.h"

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace tavi {

// The agent's plain state in the defaults store: every read goes to the store, nothing is
// cached here, so a change made elsewhere is seen as soon as the store sees it.
namespace Stockage {

// Used when the defaults hold no valid "serveur": an administrator sets the real address with
// `tavi reglage serveur URL`.
inline constexpr std::string_view adresseParDefaut = "https://famille.tavi-home.example";

// Whether `texte` is an address the agent can call: http or https, with a host.
bool estUneAdresse(std::string_view texte);

// The family server's base address: "serveur" when it is a valid address, else the default.
std::string serveur(const Reglages& reglages);

// The last rule set received, decoded; absent when missing or undecodable.
std::optional<Consigne> consigneRangee(const Reglages& reglages);

// The consent keys a rule set requires: "rapport" for the applications report, "historique"
// for the site history.
std::set<std::string> clesRequises(const std::optional<Consigne>& consigne);

// Whether the child was shown what the parents see ("accord_vu") for every consent key that
// `consigne` requires ("accord_cles").
bool accordCouvre(const Reglages& reglages, const std::optional<Consigne>& consigne);
// Records that the child was shown what the parents see under `consigne`: "accord_vu" and its
// keys, sorted.
void consentir(Reglages& reglages, const std::optional<Consigne>& consigne);

// This installation's identifier, created (a random UUID in upper case) on first use and kept
// for the installation's life, pairings included. When the store refuses to keep it, the
// same identifier comes back for the rest of the process's life.
std::string installation(Reglages& reglages);

// The day's counted seconds when the last rule set with its remainder was received, and that
// day; absent removes both.
void resteBase(Reglages& reglages, const std::optional<std::pair<double, std::string>>& base);

// Forgets the pairing: the seven keys it wrote (the token is `Trousseau::effacer`'s, which
// blocks). The installation identifier, the server address, the counters and the clock stay,
// deliberately.
void oublier(Reglages& reglages);

} // namespace Stockage

// The computer's bearer token, the agent's only secret: never in the defaults, a log or a
// command line. Only a token that passes `jetonValide` is written, and one that fails it reads
// as absent (the fallback file is the child's to edit).
namespace Trousseau {
inline constexpr const char* service = "com.tavi.home.mac";
inline constexpr const char* compte = "jeton";

std::optional<std::string> lire(const Coffre& coffre);
void ecrire(Coffre& coffre, const std::string& jeton);
void effacer(Coffre& coffre);
} // namespace Trousseau

} // namespace tavi
