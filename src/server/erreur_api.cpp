#include "server/erreur_api.h"

#include "commun/selon.h"
#include "commun/texte.h"

namespace tavi {

std::string decrire(const EchecApi& echec) {
    return std::visit(
        Selon{[](const ErreurApi& e) { return std::to_string(e.statut) + " " + e.message; },
              [](const ErreurTransport& e) {
                  return "pas de réponse HTTP (" + e.message + ", code " + std::to_string(e.code) +
                         ")";
              },
              [](const ErreurDecodage& e) { return "réponse illisible : " + e.message; },
              [](const ErreurSerialisation& e) {
                  return "corps impossible à écrire : " + e.message;
              }},
        echec);
}

std::string messagePourEnfant(const EchecApi& echec) {
    if (const auto* refus = std::get_if<ErreurApi>(&echec)) return refus->message;
    return texte("Impossible de joindre Tavi Home pour l'instant.");
}

int statutDe(const EchecApi& echec) {
    if (const auto* refus = std::get_if<ErreurApi>(&echec)) return refus->statut;
    return 0;
}

} // namespace tavi
