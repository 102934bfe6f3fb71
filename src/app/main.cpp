#include "app/capture.h"
#include "app/essai_api.h"
#include "app/execution_agent.h"
#include "app/lancement.h"
#include "app/signaux_arret.h"
#include "commun/fuseau_systeme.h"
#include "commun/texte.h"
#include "platform/linux/systeme_linux.h"
#include "platform/qt/boucle_qt.h"
#include "server/stockage.h"

#include <QCoreApplication>
#include <cstdlib>
#include <iostream>
#include <sys/prctl.h>

int main(int argc, char** argv) {
    // Before any thread or secret: no process of the child's own account may attach a debugger
    // to the agent, read its memory or its /proc files, or get a core of it. The relay's
    // placeholder token is all it holds under a guardian, but its decisions are what the
    // parents rely on.
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    tavi::suivreFuseauSysteme();
    tavi::initialiserTextes(TAVI_CATALOGUES);
    const tavi::Lancement lancement = tavi::lireLancement({argv, argv + argc});
    if (lancement.aide) {
        std::cout << tavi::texteAide;
        return 0;
    }
    if (lancement.version) {
        std::cout << "tavi-home " << TAVI_VERSION << '\n';
        return 0;
    }

    if (lancement.essaiApi) {
        const auto& [serveur, code] = *lancement.essaiApi;
        if (!tavi::Stockage::estUneAdresse(serveur)) {
            std::cerr << "tavi-home: « " << serveur << " » n'est pas une adresse http(s)\n";
            return 2;
        }
        QCoreApplication application(argc, argv);
        tavi::BoucleQt boucle;
        tavi::SystemeLinux systeme;
        tavi::EssaiApi essai(serveur, code, boucle, systeme, std::cout);
        essai.demarrer([&boucle](int statut) { boucle.quitter(statut); });
        return boucle.executer();
    }
    if (lancement.capture) return tavi::capturer(*lancement.capture, argc, argv);

    tavi::SignauxArret::bloquer();
    if (lancement.sansInterface) tavi::executerSansInterface(argc, argv);
    // With no display to draw on, the agent still counts and reports; the veil waits.
    // An empty variable names no display either: Qt would end the process trying to reach it.
    const auto nomme = [](const char* variable) {
        const char* valeur = std::getenv(variable);
        return valeur && *valeur;
    };
    if (!nomme("DISPLAY") && !nomme("WAYLAND_DISPLAY") && !nomme("QT_QPA_PLATFORM")) {
        std::cerr << "tavi-home: aucun écran (ni DISPLAY ni WAYLAND_DISPLAY) : l'agent tourne "
                     "sans interface\n";
        tavi::executerSansInterface(argc, argv);
    }
    tavi::executerAvecInterface(argc, argv);
}
