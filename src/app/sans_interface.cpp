#include "app/sans_interface.h"

#include "app/agent_linux.h"
#include "app/etat_publie.h"
#include "app/fin_processus.h"
#include "app/signaux_arret.h"
#include "platform/qt/boucle_qt.h"

#include <QCoreApplication>
#include <chrono>
#include <iostream>

namespace tavi {

namespace {

// Time given to the stop report before the agent ends without its answer.
constexpr std::chrono::seconds attenteArret{4};

} // namespace

void executerSansInterface(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    BoucleQt boucle;
    AgentDeSession agent(boucle);
    Moteur& moteur = agent.moteur();
    SortieEtat sortie(moteur, std::cout);

    bool arretEnCours = false;
    SignauxArret signaux(boucle, [&](int) {
        if (arretEnCours || !moteur.relie()) finirProcessus(0);
        arretEnCours = true;
        moteur.signalerArret([] { finirProcessus(0); });
        boucle.plusTard(attenteArret, [] { finirProcessus(0); });
    });

    moteur.demarrer();
    finirProcessus(boucle.executer());
}

} // namespace tavi
