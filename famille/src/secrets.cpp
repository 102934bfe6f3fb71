#include "secrets.h"

#include <algorithm>
#include <array>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <stdexcept>

namespace tavi::famille::Secrets {

namespace {

template <std::size_t N>
std::array<unsigned char, N> aleatoire() {
    std::array<unsigned char, N> octets{};
    // Failing to gather entropy is not something to work around with a weaker source.
    if (RAND_bytes(octets.data(), static_cast<int>(N)) != 1)
        throw std::runtime_error("générateur aléatoire indisponible");
    return octets;
}

const char* hex = "0123456789abcdef";

} // namespace

std::string jeton() {
    static constexpr char base64url[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    auto octets = aleatoire<32>();
    std::string texte;
    for (std::size_t i = 0; i < octets.size(); i += 3) {
        std::size_t restants = std::min<std::size_t>(3, octets.size() - i);
        unsigned bloc = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bloc = (bloc << 8) | (k < restants ? octets[i + k] : 0u);
        for (std::size_t k = 0; k <= restants; ++k)
            texte += base64url[(bloc >> (18 - 6 * k)) & 63];
    }
    return texte;
}

std::string empreinte(std::string_view texte) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> resume{};
    unsigned int longueur = 0;
    if (EVP_Digest(texte.data(), texte.size(), resume.data(), &longueur, EVP_sha256(), nullptr) !=
        1)
        throw std::runtime_error("SHA-256 indisponible");
    std::string sortie;
    for (unsigned int i = 0; i < longueur; ++i) {
        sortie += hex[resume[i] >> 4];
        sortie += hex[resume[i] & 15];
    }
    return sortie;
}

std::string codeAppairage() {
    std::string code;
    // Rejection sampling keeps every letter equally likely: 248 is the largest multiple of 31
    // below 256.
    const unsigned limite = 256 - 256 % alphabetCode.size();
    while (code.size() < longueurCode)
        for (unsigned char octet : aleatoire<16>())
            if (octet < limite && code.size() < longueurCode)
                code += alphabetCode[octet % alphabetCode.size()];
    return code;
}

std::string normaliserCode(std::string_view saisi) {
    std::string code;
    for (char c : saisi) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) code += c;
    }
    return code;
}

} // namespace tavi::famille::Secrets
