#include "generique/arguments.h"
#include "observation/navigateurs.h"
#include "outils/commandes.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace tavi::outils {

int commandeSite(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    const std::string adresse = args.suivant("ADRESSE");
    // Without a rule set the address is judged under an empty one: only the domain says
    // anything then.
    Consigne consigne;
    if (auto reste = args.reste(); !reste.empty()) consigne = lireConsigne(reste);

    const auto domaine = Navigateurs::domaine(adresse);
    const bool bloque =
        domaine && Navigateurs::estBloque(*domaine, consigne.filtreWeb.value_or(FiltreJSON{}));
    nlohmann::ordered_json ligne = {
        {"domaine", domaine ? nlohmann::json(*domaine) : nlohmann::json(nullptr)},
        {"bloque", bloque},
        {"filtre_utile", Navigateurs::filtreUtile(consigne)}};
    std::cout << ligne.dump() << '\n';
    return 0;
}

} // namespace tavi::outils
