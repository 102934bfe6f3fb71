#include "app/essai_api.h"
#include "app/lancement.h"
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

    std::cerr << "tavi-home: l'agent ne démarre pas encore de lui-même ; "
                 "--essai-api SERVEUR CODE essaie le lien avec un serveur de famille\n";
    return 1;
}
