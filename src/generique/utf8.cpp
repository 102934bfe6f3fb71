#include "generique/utf8.h"

namespace tavi {

std::size_t sequenceUtf8(std::string_view s, char32_t& point) {
    if (s.empty()) return 0;
    const auto octet = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char c = octet(0);
    std::size_t n = 0;
    if (c < 0x80) {
        point = c;
        return 1;
    }
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        point = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        point = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        point = c & 0x07;
    } else {
        return 0;
    }
    if (s.size() < n) return 0;
    for (std::size_t i = 1; i < n; ++i) {
        if ((octet(i) & 0xC0) != 0x80) return 0;
        point = (point << 6) | (octet(i) & 0x3F);
    }
    const char32_t minimum = n == 2 ? 0x80 : n == 3 ? 0x800 : 0x10000;
    if (point < minimum || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return 0;
    return n;
}

bool utf8Valide(std::string_view texte) {
    char32_t point = 0;
    while (!texte.empty()) {
        const std::size_t n = sequenceUtf8(texte, point);
        if (n == 0) return false;
        texte.remove_prefix(n);
    }
    return true;
}

std::string pourTerminal(std::string_view texte) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string sur;
    while (!texte.empty()) {
        char32_t point = 0;
        const std::size_t n = sequenceUtf8(texte, point);
        if (n == 0 || point < 0x20 || point == 0x7F) {
            const auto c = static_cast<unsigned char>(texte[0]);
            sur += {'\\', 'x', hex[c >> 4], hex[c & 0xF]};
            texte.remove_prefix(1);
            continue;
        }
        if (point >= 0x80 && point <= 0x9F)
            sur += {'\\', 'u', '{', hex[point >> 4], hex[point & 0xF], '}'};
        else
            sur += texte.substr(0, n);
        texte.remove_prefix(n);
    }
    return sur;
}

} // namespace tavi
