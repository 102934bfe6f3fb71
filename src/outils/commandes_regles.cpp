#include "app/json_sortie.h"
#include "commun/jour.h"
#include "generique/arguments.h"
#include "outils/commandes.h"
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

Consigne lireConsigne(const std::vector<std::string>& positionnels) {
    auto consigne = decoderConsigne(lireEntree(positionnels));
    if (!consigne) throw EchecCommande{"consigne illisible : " + consigne.error().message};
    return std::move(consigne).value();
}

namespace {

std::string requise(Arguments& args, const std::string& option) {
    auto valeur = args.option(option);
    if (!valeur) throw ErreurUsage(option + " manque");
    return *valeur;
}

// The rule of an instant outside the calendar would be that of its nearest end: refused
// instead, so that the answer is never about another instant than the one asked.
std::int64_t instantDemande(Arguments& args) {
    const std::string texte = requise(args, "--maintenant");
    const std::int64_t instant = entierEntre(texte, "--maintenant");
    if (instant < premierInstantCalendrierMs || instant > dernierInstantCalendrierMs)
        throw EchecCommande{"--maintenant " + texte + " : instant hors des années 1 à 9999"};
    return instant;
}

void imprimerRegle(const std::optional<RegleMac>& regle) {
    std::cout << ligneJson(regleEnJson(regle)) << '\n';
}

} // namespace

int commandeConsigne(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    std::cout << encoderConsigne(lireConsigne(args.reste())).dump() << '\n';
    return 0;
}

int commandeRegle(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    const std::int64_t maintenant = instantDemande(args);
    const auto jour = args.option("--utilise-jour");
    const double utiliseJour = jour ? nombreDe(*jour, "--utilise-jour") : 0.0;
    std::optional<double> depuisConsigne;
    if (auto depuis = args.option("--utilise-depuis-consigne"))
        depuisConsigne = nombreDe(*depuis, "--utilise-depuis-consigne");
    std::optional<Consigne> consigne = lireConsigne(args.reste());
    imprimerRegle(Programme::regleCourante(consigne, maintenant, depuisConsigne, utiliseJour));
    return 0;
}

int commandeSieste(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    const std::int64_t maintenant = instantDemande(args);
    const std::string appli = requise(args, "--appli");
    std::map<std::string, double> usage;
    for (const std::string& u : args.options("--usage")) {
        auto egal = u.rfind('=');
        if (egal == std::string::npos || egal == 0)
            throw ErreurUsage("--usage attend IDENTIFIANT=SECONDES, pas « " + u + " »");
        usage[u.substr(0, egal)] = nombreDe(u.substr(egal + 1), "--usage");
    }
    std::optional<Consigne> consigne = lireConsigne(args.reste());
    auto secondes = [&usage](const std::string& id) {
        auto it = usage.find(id);
        return it == usage.end() ? 0.0 : it->second;
    };
    imprimerRegle(Programme::siesteAppli(appli, consigne, secondes, maintenant));
    return 0;
}

} // namespace tavi::outils
