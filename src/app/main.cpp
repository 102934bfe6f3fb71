#include "app/essai_api.h"
#include "app/lancement.h"
#include "app/sans_interface.h"
#include "app/signaux_arret.h"
#include "commun/texte.h"
#include "platform/linux/systeme_linux.h"
#include "platform/qt/boucle_qt.h"
#include "server/stockage.h"

#include <QCoreApplication>
#include <iostream>

int main(int argc, char** argv) {
    tavi::initialiserTextes(TAVI_CATALOGUES);
    const tavi::Lancement lancement = tavi::lireLancement({argv, argv + argc});

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
    if (lancement.capture) {
        std::cerr << "tavi-home: pas encore de fenêtre à capturer\n";
        return 1;
    }

    // Without the interface, `--sans-interface` or not, the agent runs headless.
    tavi::SignauxArret::bloquer();
    tavi::executerSansInterface(argc, argv);
}
