#include "outils/commandes.h"
#include "outils/options.h"
#include "rules/consigne_json.h"
#include "rules/programme.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tavi::outils {

using nlohmann::ordered_json;

std::string lireEntree(const std::vector<std::string>& positionnels) {
    if (positionnels.size() > 1) throw ErreurUsage("un seul fichier de consigne à la fois");
    if (positionnels.empty() || positionnels.front() == "-") {
        std::ostringstream tout;
        tout << std::cin.rdbuf();
        return tout.str();
    }
    const std::string& chemin = positionnels.front();
    std::ifstream fichier(chemin, std::ios::binary);
    if (!fichier)
        throw EchecCommande{"impossible de lire " + chemin + " : " + std::strerror(errno)};
    return {std::istreambuf_iterator<char>(fichier), std::istreambuf_iterator<char>()};
}

namespace {

Consigne lireConsigne(const std::vector<std::string>& positionnels) {
    auto consigne = decoderConsigne(lireEntree(positionnels));
    if (!consigne) throw EchecCommande{"consigne illisible : " + consigne.error().message};
    return std::move(consigne).value();
}

void imprimerRegle(const std::optional<RegleMac>& regle) {
    if (!regle) {
        std::cout << "null\n";
        return;
    }
    ordered_json o = {{"bloquer_tout", regle->bloquerTout},
                      {"bloquees", regle->bloquees},
                      {"familles", regle->familles},
                      {"cause", regle->cause},
                      {"titre", regle->titre},
                      {"titre_affiche", regle->titreAffiche()},
                      {"fin", regle->fin}};
    std::cout << o.dump() << '\n';
}

} // namespace

int commandeConsigne(const std::vector<std::string>& arguments) {
    Options options(arguments, {});
    std::cout << encoderConsigne(lireConsigne(options.positionnels())).dump() << '\n';
    return 0;
}

int commandeRegle(const std::vector<std::string>& arguments) {
    Options options(arguments, {"--maintenant", "--utilise-jour", "--utilise-depuis-consigne"});
    const std::int64_t maintenant =
        lireEntierOption("--maintenant", options.requis("--maintenant"));
    const double utiliseJour = options.nombre("--utilise-jour").value_or(0);
    const std::optional<double> depuisConsigne = options.nombre("--utilise-depuis-consigne");
    std::optional<Consigne> consigne = lireConsigne(options.positionnels());
    imprimerRegle(Programme::regleCourante(consigne, maintenant, depuisConsigne, utiliseJour));
    return 0;
}

int commandeSieste(const std::vector<std::string>& arguments) {
    Options options(arguments, {"--maintenant", "--appli", "--usage"}, {"--usage"});
    const std::int64_t maintenant =
        lireEntierOption("--maintenant", options.requis("--maintenant"));
    const std::string appli = options.requis("--appli");
    std::map<std::string, double> usage;
    for (const std::string& u : options.valeurs("--usage")) {
        auto egal = u.rfind('=');
        if (egal == std::string::npos || egal == 0)
            throw ErreurUsage("--usage attend IDENTIFIANT=SECONDES, pas « " + u + " »");
        usage[u.substr(0, egal)] = lireNombreOption("--usage", u.substr(egal + 1));
    }
    std::optional<Consigne> consigne = lireConsigne(options.positionnels());
    auto secondes = [&usage](const std::string& id) {
        auto it = usage.find(id);
        return it == usage.end() ? 0.0 : it->second;
    };
    imprimerRegle(Programme::siesteAppli(appli, consigne, secondes, maintenant));
    return 0;
}

} // namespace tavi::outils
