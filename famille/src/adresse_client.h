#pragma once

#include <string>

namespace tavi::famille {

// The key under which a client's address is counted by the limits. One IPv6 subscriber gets a
// whole /64, so an IPv6 address counts by its first 64 bits; an IPv4 address mapped into IPv6
// counts as the IPv4 address. Text that is not an address is its own key.
std::string cleAdresse(const std::string& adresse);

} // namespace tavi::famille
