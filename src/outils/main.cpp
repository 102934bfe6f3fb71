#include "commun/fuseau_systeme.h"
#include "commun/texte.h"
#include "generique/arguments.h"
#include "outils/commandes.h"

#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr const char* usage = R"(usage : tavi COMMANDE [OPTIONS]

  tavi consigne [FICHIER|-]
      décode une consigne et l'imprime réencodée (une ligne JSON)
  tavi regle --maintenant MS [--utilise-jour SECONDES]
             [--utilise-depuis-consigne SECONDES] [FICHIER|-]
      imprime la règle en vigueur à l'instant MS (ms depuis 1970, heure du serveur)
  tavi sieste --maintenant MS --appli IDENTIFIANT [--usage IDENTIFIANT=SECONDES]...
              [FICHIER|-]
      imprime la sieste d'une application (usage du jour des applications, 0 par défaut)

  tavi site ADRESSE [FICHIER|-]
      imprime le domaine d'une adresse et s'il est bloqué par la consigne donnée
      (sans consigne : une consigne vide)

  tavi applis
      imprime les applications installées telles que le battement les envoie, puis leur
      empreinte

  tavi activite
      imprime ce que le compteur déciderait maintenant et pourquoi : inactivité, écran
      verrouillé, session, écrans, application au premier plan, ce qui ne s'observe pas

  tavi rejoindre CODE
      relie cet ordinateur à la famille avec le code donné par les parents, comme l'agent
      (mêmes réglages, même trousseau, premier battement compris) ; imprime le prénom de
      l'enfant et l'ordinateur. Code refusé : le message du serveur, statut 1

  tavi reglage [--json] CLE [VALEUR]
  tavi reglage --supprimer CLE
      lit (JSON, ou null), écrit (un texte, ou avec --json la valeur JSON donnée) ou
      supprime une clé des réglages de l'agent ;
      « tavi reglage serveur https://… » pointe l'agent vers un serveur de famille
      (sauf sous le gardien : l'agent passe alors par son relais et ignore ce réglage)

La consigne est lue dans FICHIER, ou sur l'entrée standard avec « - » (et sans fichier,
sauf pour « site »).
Le jour local suit le fuseau du système (/etc/localtime), jamais la variable TZ.
)";

using Commande = std::function<int(const std::vector<std::string>&)>;

const std::map<std::string, Commande>& commandes() {
    static const std::map<std::string, Commande> table = {
        {"consigne", tavi::outils::commandeConsigne},
        {"regle", tavi::outils::commandeRegle},
        {"sieste", tavi::outils::commandeSieste},
        {"reglage", tavi::outils::commandeReglage},
        {"site", tavi::outils::commandeSite},
        {"applis", tavi::outils::commandeApplis},
        {"activite", tavi::outils::commandeActivite},
        {"rejoindre", tavi::outils::commandeRejoindre},
    };
    return table;
}

int erreurUsage(const std::string& message) {
    std::cerr << "tavi: " << message << "\n\n" << usage;
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    tavi::suivreFuseauSysteme();
    tavi::initialiserTextes(TAVI_CATALOGUES);
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty()) return erreurUsage("commande manquante");
    if (arguments.front() == "--aide" || arguments.front() == "-h" ||
        arguments.front() == "--help") {
        std::cout << usage;
        return 0;
    }
    auto commande = commandes().find(arguments.front());
    if (commande == commandes().end())
        return erreurUsage("commande inconnue : " + arguments.front());
    arguments.erase(arguments.begin());
    try {
        return commande->second(arguments);
    } catch (const tavi::ErreurUsage& e) {
        return erreurUsage(e.what());
    } catch (const tavi::outils::EchecCommande& e) {
        std::cerr << "tavi: " << e.message << '\n';
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "tavi: " << e.what() << '\n';
        return 2;
    }
}
