#include "gardien/horloge_gardien.h"

namespace tavi {

HorlogeGardien::HorlogeGardien(const Horloges& horloges, const std::string& chemin)
    : horloges_(horloges), reglages_(chemin) {}

void HorlogeGardien::noter(std::int64_t serveurMs, std::int64_t envoiMs, std::int64_t recuMs) {
    Horloge::noter(reglages_, horloges_, propre_, serveurMs, envoiMs, recuMs);
}

std::int64_t HorlogeGardien::maintenantMs() const {
    return Horloge::maintenant(reglages_, horloges_, propre_);
}

} // namespace tavi
