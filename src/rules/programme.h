#pragma once

#include "platform/application.h"
#include "platform/categories_applis.h"
#include "rules/consigne.h"
#include "rules/regle_mac.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavi::Programme {

// The rule set turned into the rule of an instant. Pure functions: no clock, no state; the
// caller gives the server-corrected time and the usage figures.

// Family name -> the application identifiers that make it up (schedule ranges in "familles"
// mode). The identifiers are the platform's own, so the table is data per platform.
const std::map<std::string, std::set<std::string>>& famillesMac();
// Family name -> fragments looked for in an application's declared category.
const std::map<std::string, std::vector<std::string>>& categories();
// Applications never blocked, whatever the rule: the agent itself and what the session needs
// to stay usable.
const std::set<std::string>& jamais();
// This agent's own application identifier.
const std::string& identifiantAgent();

RegleMac regleDePlage(const Plage& plage);

// The immediate rule of a rule set, whether or not it is in force.
RegleMac instantane(const Consigne& consigne);

// The rule in force at `maintenant` (server time, ms). `utiliseDepuisConsigne`: active use in
// seconds since the rule set was received, absent when unknown; `utiliseDuJour`: active use in
// seconds of the current local day.
std::optional<RegleMac> regleCourante(const std::optional<Consigne>& consigne,
                                      std::int64_t maintenant,
                                      std::optional<double> utiliseDepuisConsigne,
                                      double utiliseDuJour);

// Whether a running application falls under `regle`.
bool estCoupee(const Application& application, const RegleMac& regle,
               const CategoriesApplis& categoriesApplis);

// The nap of one application: cut off by the parents, or its group's daily allowance used up.
// `secondesAppli` gives an application's seconds of use today.
std::optional<RegleMac> siesteAppli(const std::string& identifiant,
                                    const std::optional<Consigne>& consigne,
                                    const std::function<double(const std::string&)>& secondesAppli,
                                    std::int64_t maintenant);

} // namespace tavi::Programme
