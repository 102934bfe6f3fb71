#include "server/jeton.h"

namespace tavi {

bool jetonValide(std::string_view jeton) {
    if (jeton.empty() || jeton.size() > longueurMaxJeton) return false;
    const std::size_t finCorps = jeton.find_last_not_of('=');
    // Padding alone is no token.
    if (finCorps == std::string_view::npos) return false;
    for (unsigned char c : jeton.substr(0, finCorps + 1)) {
        const bool permis = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                            (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                            c == '~' || c == '+' || c == '/';
        if (!permis) return false;
    }
    return true;
}

} // namespace tavi
