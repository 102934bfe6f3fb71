#include "server/relais.h"

#include <cstdlib>
#include <sys/stat.h>

namespace tavi {

std::string cheminRelais() {
    const char* autre = std::getenv("TAVI_RELAIS");
    if (autre && autre[0] == '/') return autre;
    return std::string(cheminRelaisParDefaut);
}

std::optional<std::filesystem::path> relaisPresent() {
    const std::string chemin = cheminRelais();
    struct stat etat {};
    if (::lstat(chemin.c_str(), &etat) != 0) return std::nullopt;
    return chemin;
}

} // namespace tavi
