#include "generique/identifiant.h"

#include <array>
#include <stdexcept>
#include <unistd.h>

namespace tavi {

void octetsAleatoires(unsigned char* octets, std::size_t taille) {
    // getentropy gives at most 256 bytes a call.
    for (std::size_t fait = 0; fait < taille;) {
        const std::size_t morceau = std::min<std::size_t>(256, taille - fait);
        if (::getentropy(octets + fait, morceau) != 0)
            throw std::runtime_error("générateur aléatoire indisponible");
        fait += morceau;
    }
}

std::string uuidAuHasard() {
    std::array<unsigned char, 16> octets{};
    octetsAleatoires(octets.data(), octets.size());
    octets[6] = static_cast<unsigned char>((octets[6] & 0x0F) | 0x40); // version 4
    octets[8] = static_cast<unsigned char>((octets[8] & 0x3F) | 0x80); // RFC 4122 variant
    static constexpr char chiffres[] = "0123456789abcdef";
    std::string uuid;
    for (std::size_t i = 0; i < octets.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) uuid += '-';
        uuid += chiffres[octets[i] >> 4];
        uuid += chiffres[octets[i] & 0x0F];
    }
    return uuid;
}

} // namespace tavi
