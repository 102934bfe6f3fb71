#include "platform/linux/demarrage_gardien.h"

#include <utility>

namespace tavi {

DemarrageGardien::DemarrageGardien(std::unique_ptr<Demarrage> ancien)
    : ancien_(std::move(ancien)) {}

void DemarrageGardien::nettoyer() const {
    std::call_once(nettoye_, [this] { ancien_->desenregistrer(); });
}

bool DemarrageGardien::actif() const {
    nettoyer();
    return true;
}

std::optional<std::string> DemarrageGardien::enregistrer() {
    nettoyer();
    return std::nullopt;
}

void DemarrageGardien::desenregistrer() {
    nettoyer();
}

} // namespace tavi
