// Drives the secret store from its standard input, one operation a line, so that a test can
// run it in a process of its own (with no session bus, say) and read what it logs:
//   lire SERVICE COMPTE            prints "= SECRET" or "absent"
//   ecrire SERVICE COMPTE SECRET   prints "ok"
//   supprimer SERVICE COMPTE       prints "ok"
// The secret comes on standard input, never on the command line, where others may read it.
#include "platform/linux/coffre_secret.h"

#include <iostream>
#include <sstream>
#include <string>

int main() {
    tavi::CoffreSecret coffre;
    std::string ligne;
    while (std::getline(std::cin, ligne)) {
        std::istringstream mots(ligne);
        std::string operation, service, compte, secret;
        mots >> operation >> service >> compte;
        if (operation == "lire") {
            auto lu = coffre.lire(service, compte);
            std::cout << (lu ? "= " + *lu : "absent") << '\n';
        } else if (operation == "ecrire" && (mots >> secret)) {
            coffre.ecrire(service, compte, secret);
            std::cout << "ok\n";
        } else if (operation == "supprimer") {
            coffre.supprimer(service, compte);
            std::cout << "ok\n";
        } else {
            std::cerr << "coffre_essai: unknown operation: " << ligne << '\n';
            return 2;
        }
    }
    return 0;
}
