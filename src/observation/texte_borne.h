#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tavi {

// `texte` made fit to store and send as JSON: every invalid UTF-8 sequence becomes U+FFFD,
// and the result is cut at a character boundary so that it holds at most `maxOctets` bytes.
// Names come from files and processes the child controls; a single bad byte would make the
// JSON writer refuse the whole record they sit in.
std::string texteBorne(std::string_view texte, std::size_t maxOctets);

} // namespace tavi
