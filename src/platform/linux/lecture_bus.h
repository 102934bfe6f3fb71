#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

struct sd_bus_message;

namespace tavi {

// Reading values out of D-Bus messages from other processes. sd-bus checks that a message
// matches its signature; these check what the values are: a variant holding another type than
// the one expected reads as absent and is stepped over, so the rest of the message still
// reads.
namespace LectureBus {

// Entries past this many in a dictionary are not read: no service we ask has that many
// properties, and a reply that claims more is not one we trust.
constexpr std::size_t entreesMax = 256;
constexpr std::size_t texteMax = 256;

// Reads a dictionary of variants (a{sv}) at the current position, calling `valeur` with the
// message placed on each entry's variant; `valeur` reads the variant and says so, or returns
// false to have it stepped over. False when the message holds no such dictionary there or
// more than `entreesMax` entries.
bool dictionnaire(sd_bus_message* m,
                  const std::function<bool(std::string_view nom, sd_bus_message*)>& valeur);

// Each reads the variant at the current position, whatever it holds.
std::optional<bool> booleen(sd_bus_message* m);
std::optional<std::uint64_t> entier64(sd_bus_message* m);
// Text longer than `texteMax` reads as absent.
std::optional<std::string> texte(sd_bus_message* m);

} // namespace LectureBus

} // namespace tavi
