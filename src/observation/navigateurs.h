#pragma once

#include "platform/lecture.h"
#include "platform/navigation.h"
#include "rules/consigne.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tavi::Navigateurs {

// The browsers the agent can read, application identifier -> what the platform's reader
// needs to know of it: the tab keyword of its scripting dictionary on macOS, the engine family
// ("gecko", "chromium", "webkit") on Linux.
const std::map<std::string, std::string>& lisibles();
// The macOS browsers and the keyword that names their tab. Data for the macOS reader, kept on
// every platform so that the scripts below are built and checked everywhere.
const std::map<std::string, std::string>& ongletsMac();

// The script that returns the front tab's address, and the one that blanks it, for a browser
// of `ongletsMac`; absent for any other identifier. Each carries its own 3-second timeout.
std::optional<std::string> scriptLecture(const std::string& identifiant);
std::optional<std::string> scriptVidage(const std::string& identifiant);

// Adult and gambling sites blocked when the filter is on, with their subdomains.
const std::set<std::string>& domainesAdultes();
// Fragments that block a domain wherever they appear in it when the filter is on.
const std::vector<std::string>& motsCles();

// The domain of a web address: lowercase, without "www." (once), without a port, user or
// final dot; absent for anything but http(s), or a host without a dot.
std::optional<std::string> domaine(std::string_view adresse);
// Whether `domaine` is blocked: the family's allowed domains first, then its blocked ones,
// then, when the filter is on, the built-in domains and fragments.
bool estBloque(std::string_view domaine, const FiltreJSON& filtre);
// Whether reading browsers serves any purpose under the rule set.
bool filtreUtile(const std::optional<Consigne>& consigne);

// One reading through the platform's reader, on the browser worker only. A browser not in
// `lisibles` is `illisible` without asking the reader. Never throws.
Lecture lire(Navigation& navigation, const std::string& identifiant);
// Blanks the front tab of a browser of `lisibles`; anything else, and any failure, is
// ignored.
void vider(Navigation& navigation, const std::string& identifiant);

} // namespace tavi::Navigateurs
