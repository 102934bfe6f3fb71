#include "generique/arguments.h"
#include "observation/liste_applis.h"
#include "outils/commandes.h"
#include "platform/linux/applications_xdg.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace tavi::outils {

int commandeApplis(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    args.fin();
    ApplicationsXdg applications(EnvironnementXdg::duProcessus());
    const auto liste = ListeApplis::lire(applications);
    std::cout << nlohmann::json{{"applis_installees", ListeApplis::enregistrements(liste)}}.dump()
              << '\n'
              << nlohmann::json{{"empreinte", ListeApplis::empreinte(liste)}}.dump() << '\n';
    return 0;
}

} // namespace tavi::outils
