#include "generique/utf8.h"
#include "observation/navigateurs.h"

namespace tavi::Navigateurs {

// The host of an address read the way a browser reads it, so that no spelling of a blocked
// site's address that a browser would open escapes the filter: case, spaces and control
// characters around it, tabs and line breaks inside, a user name before "@", a port, a final
// dot, percent-escapes and full-width letters in the host, "\" for "/", missing slashes.

namespace {

// Browsers refuse to open longer addresses, so a longer text did not come from a tab.
constexpr std::size_t longueurMaxAdresse = 2 * 1024 * 1024;
// The longest name DNS can resolve.
constexpr std::size_t longueurMaxHote = 253;

bool estLettre(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool estChiffre(char c) {
    return c >= '0' && c <= '9';
}
char minuscule(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
int valeurHexa(char c) {
    if (estChiffre(c)) return c - '0';
    c = minuscule(c);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Characters no host may hold (a browser refuses the address).
bool interditDansHote(char32_t c) {
    if (c <= 0x20 || c == 0x7F) return true;
    for (char i : std::string_view("#%/:<>?@[\\]^|"))
        if (c == static_cast<char32_t>(i)) return true;
    return false;
}

// Code points that international domain names drop on the way to DNS: "cas\u00ADino.com"
// opens casino.com.
bool ignoreDansHote(char32_t c) {
    return c == 0xAD || c == 0x34F || (c >= 0x180B && c <= 0x180D) ||
           (c >= 0x200B && c <= 0x200D) || c == 0x2060 || (c >= 0xFE00 && c <= 0xFE0F) ||
           c == 0xFEFF;
}

void ajouterUtf8(std::string& texte, char32_t c) {
    if (c < 0x80) {
        texte += static_cast<char>(c);
    } else if (c < 0x800) {
        texte += static_cast<char>(0xC0 | (c >> 6));
        texte += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        texte += static_cast<char>(0xE0 | (c >> 12));
        texte += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        texte += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        texte += static_cast<char>(0xF0 | (c >> 18));
        texte += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        texte += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        texte += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// The host as DNS would be asked for it, or absent when a browser would refuse it.
std::optional<std::string> normaliserHote(std::string_view brut) {
    std::string decode;
    for (std::size_t i = 0; i < brut.size(); ++i) {
        if (brut[i] == '%' && i + 2 < brut.size() && valeurHexa(brut[i + 1]) >= 0 &&
            valeurHexa(brut[i + 2]) >= 0) {
            decode += static_cast<char>(valeurHexa(brut[i + 1]) * 16 + valeurHexa(brut[i + 2]));
            i += 2;
        } else {
            decode += brut[i];
        }
    }
    std::string hote;
    for (std::string_view reste = decode; !reste.empty();) {
        char32_t c = 0;
        const std::size_t n = sequenceUtf8(reste, c);
        if (n == 0) return std::nullopt;
        reste.remove_prefix(n);
        if (ignoreDansHote(c)) continue;
        // The ideographic and full-width full stops separate labels like ".".
        if (c == 0x3002 || c == 0xFF0E || c == 0xFF61) c = '.';
        // Full-width ASCII is the ASCII it looks like.
        if (c >= 0xFF01 && c <= 0xFF5E) c -= 0xFEE0;
        if (c < 0x80) {
            if (interditDansHote(c)) return std::nullopt;
            hote += minuscule(static_cast<char>(c));
        } else {
            ajouterUtf8(hote, c);
        }
        if (hote.size() > longueurMaxHote + 8) return std::nullopt;
    }
    // "casino.com." is the same name, fully qualified.
    while (!hote.empty() && hote.back() == '.')
        hote.pop_back();
    if (hote.empty() || hote.size() > longueurMaxHote) return std::nullopt;
    return hote;
}

std::optional<std::string> domaineDe(std::string_view adresse, bool interieure) {
    // Spaces and control characters around the address are not part of it; tabs and line
    // breaks inside it are dropped.
    while (!adresse.empty() && static_cast<unsigned char>(adresse.front()) <= ' ')
        adresse.remove_prefix(1);
    while (!adresse.empty() && static_cast<unsigned char>(adresse.back()) <= ' ')
        adresse.remove_suffix(1);

    const auto deuxPoints = adresse.find(':');
    if (deuxPoints == std::string_view::npos || deuxPoints == 0 || !estLettre(adresse[0]))
        return std::nullopt;
    std::string schema;
    for (char c : adresse.substr(0, deuxPoints)) {
        if (c == '\t' || c == '\n' || c == '\r') continue;
        if (!estLettre(c) && !estChiffre(c) && c != '+' && c != '-' && c != '.')
            return std::nullopt;
        schema += minuscule(c);
    }
    std::string_view reste = adresse.substr(deuxPoints + 1);
    // The source of a page and a piece of one show the site they come from.
    if (!interieure && (schema == "view-source" || schema == "blob")) return domaineDe(reste, true);
    if (schema != "http" && schema != "https") return std::nullopt;

    // The authority: after any run of slashes (a browser takes "\" for "/" and mends
    // "https:casino.com"), up to the path, query or fragment.
    std::string autorite;
    bool debut = true;
    for (char c : reste) {
        if (c == '\t' || c == '\n' || c == '\r') continue;
        const bool barre = c == '/' || c == '\\';
        if (debut && barre) continue;
        debut = false;
        if (barre || c == '?' || c == '#') break;
        autorite += c;
    }
    // Whatever comes before the last "@" is a user name and password, not the site.
    if (const auto arobase = autorite.rfind('@'); arobase != std::string::npos)
        autorite.erase(0, arobase + 1);
    // An address literal names no domain.
    if (!autorite.empty() && autorite.front() == '[') return std::nullopt;
    if (const auto port = autorite.rfind(':'); port != std::string::npos) {
        for (std::size_t i = port + 1; i < autorite.size(); ++i)
            if (!estChiffre(autorite[i])) return std::nullopt;
        autorite.erase(port);
    }
    auto hote = normaliserHote(autorite);
    if (!hote) return std::nullopt;
    if (hote->starts_with("www.")) hote->erase(0, 4);
    // A bare host name is a machine of the local network, not a site.
    if (hote->find('.') == std::string::npos) return std::nullopt;
    return hote;
}

} // namespace

std::optional<std::string> domaine(std::string_view adresse) {
    if (adresse.size() > longueurMaxAdresse) return std::nullopt;
    return domaineDe(adresse, false);
}

} // namespace tavi::Navigateurs
