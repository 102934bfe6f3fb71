#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tavi {

// Names, titles and messages come from the server and from files the child controls: a window
// draws at most this much of each, so that its buttons stay on the screen.
inline constexpr std::size_t maxNom = 120;
inline constexpr std::size_t maxMessage = 400;

// `texte` cut to at most `maxOctets` bytes at a character boundary, with "…" when it was cut.
std::string affichable(const std::string& texte, std::size_t maxOctets);

// The whole minutes of a piggy bank worth spending; none for less than a minute or a value no
// rule set would hold (it comes from the server).
std::optional<int> minutesTirelire(const std::optional<double>& tirelireMin);

} // namespace tavi
