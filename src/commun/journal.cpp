#include "commun/journal.h"

#include <cstdio>
#include <string>

namespace tavi {

void journaliser(std::string_view ligne) {
    std::string texte(ligne);
    texte += '\n';
    std::fputs(texte.c_str(), stderr);
}

} // namespace tavi
