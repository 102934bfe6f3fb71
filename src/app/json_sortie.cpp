#include "app/json_sortie.h"

#include <cstdio>

namespace tavi {

nlohmann::ordered_json regleEnJson(const std::optional<RegleMac>& regle) {
    if (!regle) return nullptr;
    return {{"bloquer_tout", regle->bloquerTout},
            {"bloquees", regle->bloquees},
            {"familles", regle->familles},
            {"cause", regle->cause},
            {"titre", regle->titre},
            {"titre_affiche", regle->titreAffiche()},
            {"fin", regle->fin}};
}

std::string ligneJson(const nlohmann::ordered_json& valeur) {
    const std::string brut =
        valeur.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::string ligne;
    ligne.reserve(brut.size());
    // The dump is valid UTF-8, and outside its strings only ASCII: a DEL byte or a C1 control
    // (C2 80 to C2 9F) can only be inside a string, where its escape means the same.
    for (std::size_t i = 0; i < brut.size(); ++i) {
        const auto octet = static_cast<unsigned char>(brut[i]);
        const auto suivant = i + 1 < brut.size() ? static_cast<unsigned char>(brut[i + 1]) : 0;
        unsigned point = 0;
        if (octet == 0x7f) {
            point = octet;
        } else if (octet == 0xc2 && suivant >= 0x80 && suivant <= 0x9f) {
            point = suivant;
            ++i;
        } else {
            ligne += brut[i];
            continue;
        }
        char echappe[8];
        std::snprintf(echappe, sizeof echappe, "\\u%04x", point);
        ligne += echappe;
    }
    return ligne;
}

} // namespace tavi
