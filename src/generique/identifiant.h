#pragma once

#include <cstddef>
#include <string>

namespace tavi {

// Fills `octets` from the system's generator (getentropy). Throws std::runtime_error when it
// cannot: failing to gather entropy is not something to work around with a weaker source.
void octetsAleatoires(unsigned char* octets, std::size_t taille);

// A random version-4 UUID in lower case ("0f8e…-4…"): it says nothing about order or count.
std::string uuidAuHasard();

} // namespace tavi
