#pragma once

#include <cstddef>
#include <string_view>

namespace tavi {

// A real token is a few dozen characters; anything longer would ride on every request.
inline constexpr std::size_t longueurMaxJeton = 512;

// Whether `jeton` can go into an `Authorization: Bearer` header as it stands: RFC 6750's
// b64token (letters, digits, "-._~+/", then "=" padding only at the end), 1 to 512
// characters. Everything else, CR LF first, could write headers of its own.
bool jetonValide(std::string_view jeton);

} // namespace tavi
