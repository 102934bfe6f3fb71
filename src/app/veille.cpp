#include "app/veille.h"

#include <memory>
#include <utility>

namespace tavi {

void accorderApres(Boucle& boucle, std::chrono::milliseconds limite, Alimentation::Accord accord,
                   const std::function<void(std::function<void()> fini)>& demarrer) {
    // Only the first of the two calls reaches the system.
    auto unique = std::make_shared<Alimentation::Accord>(std::move(accord));
    auto une = [unique] {
        if (!*unique) return;
        auto premier = std::move(*unique);
        *unique = nullptr;
        premier();
    };
    boucle.plusTard(limite, une);
    demarrer(une);
}

Veille::Veille(Moteur& moteur, Alimentation& alimentation, Boucle& boucle)
    : alimentation_(alimentation) {
    alimentation.avantVeille = [&moteur, &boucle](Alimentation::Accord accord) {
        moteur.versLaVeille();
        accorderApres(boucle, limite, std::move(accord),
                      [&moteur](auto fini) { moteur.annoncer("veille", std::move(fini)); });
    };
    alimentation.auReveil = [&moteur] { moteur.auReveil(); };
}

Veille::~Veille() {
    alimentation_.avantVeille = nullptr;
    alimentation_.auReveil = nullptr;
}

} // namespace tavi
