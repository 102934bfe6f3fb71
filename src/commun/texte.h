#pragma once

#include <string>
#include <string_view>

namespace tavi {

// The one localisation lookup for every text the child sees: the key is the French text
// itself, and French needs no catalog. Emoji prefixes stay outside the lookup.
std::string texte(const char* francais);

// The localised form of `modele` with its first placeholder ("%@" or "%d") replaced by
// `valeur`. The substitution happens after the lookup, so a catalog translates the format and
// a value is never read as a format.
std::string texteAvec(const char* modele, std::string_view valeur);

// Points the lookup at the installed catalogs and at the user's language. Called once by each
// executable's entry point; without it every text stays French.
void initialiserTextes(const char* dossierCatalogues);

} // namespace tavi
