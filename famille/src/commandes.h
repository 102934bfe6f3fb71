#pragma once

#include "depot.h"
#include "generique/arguments.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace tavi::famille {

// Runs one command line of `tavi-famille` (without the program's name) and returns its exit
// status: JSON lines on `sortie`, one line starting "tavi-famille: " on `erreurs` and status 2
// when something is refused.
int executer(const std::vector<std::string>& arguments, std::ostream& sortie,
             std::ostream& erreurs);

// What a parents' command works with.
struct Contexte {
    Arguments& args;
    Depot& depot;
    std::ostream& sortie;
    std::int64_t maintenantMs;

    void ecrire(const nlohmann::json& ligne) const { sortie << ligne.dump() << '\n'; }
};

namespace Commandes {

// commandes_reglages.cpp: what the parents decide.
void pause(Contexte& c);
void finPause(Contexte& c);
void ouvrir(Contexte& c);
void finOuverture(Contexte& c);
void limite(Contexte& c);
void plage(Contexte& c);
void plages(Contexte& c);
void supprimerPlage(Contexte& c);
void limiteAppli(Contexte& c);
void supprimerLimiteAppli(Contexte& c);
void couper(Contexte& c);
void retablir(Contexte& c);
void filtre(Contexte& c);
void rapports(Contexte& c);
void reactionVoile(Contexte& c);
void tirelire(Contexte& c);
void fuseau(Contexte& c);
void reglages(Contexte& c);

// commandes_suivi.cpp: the family, its computers and what they report.
void ajouterEnfant(Contexte& c);
void retirerEnfant(Contexte& c);
void enfants(Contexte& c);
void code(Contexte& c);
void retirerOrdinateur(Contexte& c);
void demandes(Contexte& c);
void accorder(Contexte& c);
void refuser(Contexte& c);
void rapport(Contexte& c);
void consigne(Contexte& c);

} // namespace Commandes

} // namespace tavi::famille
