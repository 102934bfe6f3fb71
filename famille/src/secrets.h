#pragma once

#include <string>
#include <string_view>

namespace tavi::famille::Secrets {

// The letters and digits of pairing codes: none that reads like another (no 0/O, 1/I/L).
inline constexpr std::string_view alphabetCode = "ABCDEFGHJKMNPQRSTUVWXYZ23456789";
inline constexpr std::size_t longueurCode = 8;

// 256 random bits from the system's generator, base64url without padding (43 characters).
std::string jeton();

// SHA-256 in hexadecimal: tokens and codes are stored only this way, so a copy of the database
// opens no computer.
std::string empreinte(std::string_view texte);

std::string codeAppairage();

// What the child typed, upper-cased, keeping only letters and digits.
std::string normaliserCode(std::string_view saisi);

} // namespace tavi::famille::Secrets
