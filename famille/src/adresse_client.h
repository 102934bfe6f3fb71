#pragma once

#include <string>

namespace tavi::famille {

// The key under which a client's address is counted by the limits. One IPv6 subscriber is
// commonly given a /56 (256 networks of a /64 each), so an IPv6 address counts by its first
// 56 bits; an IPv4 address mapped into IPv6 counts as the IPv4 address. Text that is not an
// address is its own key.
std::string cleAdresse(const std::string& adresse);

} // namespace tavi::famille
