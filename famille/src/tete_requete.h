#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tavi::famille {

// What the HTTP parser lets through in a request head and a proxy in front may read otherwise.

// The path of a request target without its query, from the origin form ("/a/b?x") or the
// absolute form ("http://hote:8080/a/b?x"); nothing for any other form ("*", "hote:443", "a/b").
std::optional<std::string> cheminDeCible(std::string_view cible);

// True when a header line is continued on the next one (obsolete line folding): the parser
// would join the pieces, a proxy may not, and the two would then disagree on a length.
bool enTeteReplie(std::string_view tete);

} // namespace tavi::famille
