#include "ui/etape_accueil.h"

namespace tavi {

EtapeAccueil etapeAccueil(const SituationAccueil& s) {
    if (s.seulementCeQueVoient) return EtapeAccueil::ceQueVoientSeul;
    if (!s.relie) return EtapeAccueil::rejoindre;
    if (!s.accordVu) return EtapeAccueil::accord;
    if (!s.autorise) return EtapeAccueil::demarrage;
    return EtapeAccueil::fini;
}

std::string nettoyerCode(std::string_view code) {
    std::string propre;
    for (char c : code) {
        if (c >= 'a' && c <= 'z')
            propre += static_cast<char>(c - 'a' + 'A');
        else if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
            propre += c;
    }
    return propre;
}

} // namespace tavi
