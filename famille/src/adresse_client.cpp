#include "adresse_client.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>

namespace tavi::famille {

std::string cleAdresse(const std::string& adresse) {
    std::array<unsigned char, 16> octets{};
    if (inet_pton(AF_INET6, adresse.c_str(), octets.data()) != 1) return adresse;
    static constexpr std::array<unsigned char, 12> prefixeV4{0, 0, 0, 0, 0,    0,
                                                             0, 0, 0, 0, 0xff, 0xff};
    bool v4 = true;
    for (std::size_t i = 0; i < prefixeV4.size(); ++i)
        v4 = v4 && octets[i] == prefixeV4[i];
    char texte[64];
    if (v4)
        std::snprintf(texte, sizeof texte, "%u.%u.%u.%u", octets[12], octets[13], octets[14],
                      octets[15]);
    else
        std::snprintf(texte, sizeof texte, "%02x%02x:%02x%02x:%02x%02x:%02x00::/56", octets[0],
                      octets[1], octets[2], octets[3], octets[4], octets[5], octets[6]);
    return texte;
}

} // namespace tavi::famille
