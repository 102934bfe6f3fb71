#include "app/execution_agent.h"

#include "app/agent_linux.h"
#include "app/etat_publie.h"
#include "app/fin_processus.h"
#include "app/signaux_arret.h"
#include "platform/linux/prise_x11.h"
#include "platform/qt/boucle_qt.h"
#include "ui/accueil_moteur.h"
#include "ui/actions_moteur.h"
#include "ui/barre.h"
#include "ui/fenetre_accueil.h"
#include "ui/voile_qt.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <chrono>
#include <iostream>

namespace tavi {

namespace {

// Time given to the stop report before the agent ends without its answer.
constexpr std::chrono::seconds attenteArret{4};

// Ends the process on SIGTERM or SIGINT, once a paired engine has told the server.
std::unique_ptr<SignauxArret> arreterSurSignal(Boucle& boucle, Moteur& moteur) {
    auto arretEnCours = std::make_shared<bool>(false);
    return std::make_unique<SignauxArret>(boucle, [&boucle, &moteur, arretEnCours](int) {
        if (*arretEnCours || !moteur.relie()) finirProcessus(0);
        *arretEnCours = true;
        moteur.signalerArret([] { finirProcessus(0); });
        boucle.plusTard(attenteArret, [] { finirProcessus(0); });
    });
}

// The veil on the session's screens, holding the keyboard and pointer where the display server
// lets a client do so (X11).
std::unique_ptr<Voile> voileDeSession(Moteur& moteur) {
    std::unique_ptr<PriseEntrees> prise;
    if (auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>())
        prise = std::make_unique<PriseX11>(x11->connection());
    return std::make_unique<VoileQt>(std::make_unique<ActionsMoteur>(moteur), std::move(prise));
}

} // namespace

void executerSansInterface(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    BoucleQt boucle;
    AgentDeSession agent(boucle);
    Moteur& moteur = agent.moteur();
    SortieEtat sortie(moteur, std::cout);
    const auto signaux = arreterSurSignal(boucle, moteur);

    moteur.demarrer();
    finirProcessus(boucle.executer());
}

void executerAvecInterface(int argc, char** argv) {
    QApplication application(argc, argv);
    // The agent has no window of its own: closing the last veil window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);
    // Qt's own connection to the display is open: the agent's may follow (see AffichageX11).
    BoucleQt boucle;
    AgentDeSession agent(boucle, std::nullopt, voileDeSession);
    Moteur& moteur = agent.moteur();
    const auto signaux = arreterSurSignal(boucle, moteur);

    AccueilMoteur actionsAccueil(moteur);
    FenetreAccueil accueil;
    // A rule set that asks for a report the child has not been shown opens the panel alone.
    moteur.quandRapportActive = [&] { accueil.montrer(actionsAccueil, true); };
    ActionsMoteur actionsBarre(moteur);
    Barre barre(actionsBarre);
    barre.ouvrirAccueil = [&] { accueil.montrer(actionsAccueil, false); };
    barre.ouvrirCeQueVoient = [&] { accueil.montrer(actionsAccueil, true); };

    moteur.demarrer();
    if (!moteur.relie()) accueil.montrer(actionsAccueil, false);
    finirProcessus(boucle.executer());
}

} // namespace tavi
