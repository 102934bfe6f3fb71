#include "commun/selon.h"
#include "generique/arguments.h"
#include "outils/commandes.h"
#include "platform/linux/dossiers_linux.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/relais.h"
#include "server/stockage.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tavi::outils {

namespace {

nlohmann::json enJson(const Valeur& valeur) {
    return std::visit(Selon{[](const Dictionnaire& d) { return d.objet; },
                            [](const Donnees& d) { return nlohmann::json(d.octets); },
                            [](const auto& v) { return nlohmann::json(v); }},
                      valeur);
}

// A value given as JSON: a boolean, a number, a text, a list of texts or an object.
Valeur depuisJson(const std::string& texte) {
    const auto j = nlohmann::json::parse(texte, nullptr, false);
    if (j.is_boolean()) return j.get<bool>();
    if (j.is_number()) return j.get<double>();
    if (j.is_string()) return j.get<std::string>();
    if (j.is_object()) return Dictionnaire{j};
    if (j.is_array() &&
        std::all_of(j.begin(), j.end(), [](const auto& e) { return e.is_string(); }))
        return j.get<std::vector<std::string>>();
    throw ErreurUsage("« " + texte.substr(0, 80) +
                      " » : --json attend un booléen, un nombre, un texte, une liste de textes "
                      "ou un objet");
}

} // namespace

int commandeReglage(const std::vector<std::string>& arguments) {
    Arguments args(arguments);
    const bool supprimer = args.drapeau("--supprimer");
    const bool json = args.drapeau("--json");
    const auto p = args.reste();
    if (p.empty() || p.size() > (supprimer ? 1u : 2u))
        throw ErreurUsage(supprimer ? "--supprimer attend une clé"
                                    : "une clé, et une valeur à écrire");
    const std::string& cle = p[0];
    if (cle.empty()) throw ErreurUsage("la clé est vide");
    if (p.size() == 2 && cle == "serveur" && !Stockage::estUneAdresse(p[1]))
        throw EchecCommande{"« " + p[1] + " » n'est pas une adresse http(s) : serveur inchangé"};

    auto fichier = Dossiers::reglages();
    if (!fichier) throw EchecCommande{"pas de dossier d'état (ni XDG_STATE_HOME ni HOME)"};
    ReglagesSqlite reglages(*fichier);
    if (!reglages.persistant())
        throw EchecCommande{"réglages inaccessibles : " + fichier->string()};

    // Said on standard error, so that the value read stays the only line of the output.
    if (cle == "serveur")
        if (const auto relais = relaisPresent())
            std::cerr << "tavi: le gardien relaie tout par " << relais->string()
                      << " : l'agent ignore ce réglage et joint le serveur que le gardien "
                         "connaît\n";

    if (supprimer) {
        reglages.supprimer(cle);
    } else if (p.size() == 2) {
        reglages.ecrire(cle, json ? depuisJson(p[1]) : Valeur(p[1]));
    } else {
        auto valeur = reglages.lire(cle);
        std::cout << (valeur ? enJson(*valeur) : nlohmann::json())
                         .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                  << '\n';
        return 0;
    }
    if (reglages.echecs() > 0) throw EchecCommande{"écriture refusée par " + fichier->string()};
    return 0;
}

} // namespace tavi::outils
