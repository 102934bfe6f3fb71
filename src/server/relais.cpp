#include "server/relais.h"

#include <cstdlib>

namespace tavi {

std::string cheminRelais() {
    const char* autre = std::getenv("TAVI_RELAIS");
    if (autre && autre[0] == '/') return autre;
    return std::string(cheminRelaisParDefaut);
}

} // namespace tavi
