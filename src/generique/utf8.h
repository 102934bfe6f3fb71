#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tavi {

// The length of the UTF-8 sequence at the start of `texte` and its code point in `point`, or 0
// when it is not a valid one (overlong forms, surrogates and points past U+10FFFF included).
std::size_t sequenceUtf8(std::string_view texte, char32_t& point);

bool utf8Valide(std::string_view texte);

// `texte` made safe to print on a terminal: C0 controls, DEL and bytes that are not part of
// valid UTF-8 become \xNN, C1 controls \u{NN}, so that no text from elsewhere can move the
// cursor, ring, or forge a line of our own. Everything else passes unchanged.
std::string pourTerminal(std::string_view texte);

} // namespace tavi
