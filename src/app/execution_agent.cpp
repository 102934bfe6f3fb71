#include "app/execution_agent.h"

#include "app/agent_linux.h"
#include "app/delegue.h"
#include "app/etat_publie.h"
#include "app/filtre_fin.h"
#include "app/fin_processus.h"
#include "platform/demarrage.h"
#include "platform/linux/alimentation_logind.h"
#include "platform/linux/copies_linux.h"
#include "platform/linux/garde_x11.h"
#include "platform/linux/presence_gardien.h"
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
#include <cstdlib>
#include <iostream>
#include <utility>

namespace tavi {

namespace {

constexpr std::chrono::seconds attenteGardien{2};

// The veil on the session's screens, holding the keyboard and pointer and guarding its windows
// where the display server lets a client do so (X11); what it repairs reaches the parents.
std::unique_ptr<Voile> voileDeSession(Moteur& moteur, Boucle& boucle) {
    std::unique_ptr<PriseEntrees> prise;
    std::unique_ptr<GardeFenetres> garde;
    if (auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
        prise = std::make_unique<PriseX11>(x11->connection());
        garde = GardeX11::ouvrir(boucle, x11->display());
    }
    auto voile = std::make_unique<VoileQt>(std::make_unique<ActionsMoteur>(moteur),
                                           std::move(prise), std::move(garde));
    voile->signaler = [&moteur](const std::string& nature, const std::string& detail) {
        moteur.signalerIncident(nature, detail);
    };
    return voile;
}

// The tray icon and the welcome window, following the engine.
class FenetresAgent : public Delegue::Fenetres {
public:
    FenetresAgent(Moteur& moteur, Notifications& notifications)
        : actionsAccueil(moteur), actionsBarre(moteur), barre(actionsBarre, &notifications) {
        barre.ouvrirAccueil = [this] { accueil.montrer(actionsAccueil, false); };
        barre.ouvrirCeQueVoient = [this] { accueil.montrer(actionsAccueil, true); };
        // A rule set that asks for a report the child has not been shown: the window opens at
        // the first step still due, which is then what the parents see.
        moteur.quandRapportActive = [this] { accueil.montrer(actionsAccueil, false); };
    }
    void montrerAccueil() override { accueil.montrer(actionsAccueil, false); }

private:
    AccueilMoteur actionsAccueil;
    FenetreAccueil accueil;
    ActionsMoteur actionsBarre;
    Barre barre;
};

// This copy's presence on the guardian's relay. The launch waits for the guardian's first
// answer, `attenteGardien` at most: a guardian that does not answer leaves this copy a copy
// until it does.
std::unique_ptr<PresenceGardien>
presenceAuGardien(Boucle& boucle, const std::filesystem::path& relais, Delegue& delegue) {
    auto lance = std::make_shared<bool>(false);
    auto lancer = [&delegue, lance] {
        if (std::exchange(*lance, true)) return;
        delegue.lancer();
    };
    boucle.plusTard(attenteGardien, lancer);
    return std::make_unique<PresenceGardien>(
        boucle, relais, [&delegue, lancer](PresenceGardien::Role role) {
            delegue.reconnaitre(role == PresenceGardien::Role::agent);
            lancer();
        });
}

// Runs the agent of this session on `boucle` until it ends; `fenetres` makes its windows.
[[noreturn]] void
executer(BoucleQt& boucle, FabriqueVoile fabriqueVoile,
         std::function<std::unique_ptr<Delegue::Fenetres>(Moteur&, Notifications&)> fenetres,
         std::function<void(Moteur&, Delegue&)> avant) {
    AgentDeSession agent(boucle, std::nullopt, std::move(fabriqueVoile));
    Moteur& moteur = agent.moteur();
    AlimentationLogind alimentation(agent.observation().busDuSysteme());
    const auto copies = copiesDeSession(boucle, agent.observation().busDeSession());
    // Under a guardian, TAVI_AGENT is anybody's to set: only the guardian says which copy it
    // started.
    const bool sousGardien = agent.relais().has_value();
    Delegue delegue(boucle, moteur, *copies, alimentation,
                    !sousGardien && Demarrage::estAgent(std::getenv("TAVI_AGENT")),
                    fenetres ? Delegue::FabriqueFenetres(
                                   [&] { return fenetres(moteur, agent.notifications()); })
                             : Delegue::FabriqueFenetres());
    avant(moteur, delegue);
    std::unique_ptr<PresenceGardien> presence;
    if (sousGardien)
        presence = presenceAuGardien(boucle, *agent.relais(), delegue);
    else
        delegue.lancer();
    finirProcessus(boucle.executer());
}

} // namespace

void executerSansInterface(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    BoucleQt boucle;
    std::unique_ptr<SortieEtat> sortie;
    executer(boucle, {}, {}, [&](Moteur& moteur, Delegue&) {
        sortie = std::make_unique<SortieEtat>(moteur, std::cout);
    });
}

void executerAvecInterface(int argc, char** argv) {
    QApplication application(argc, argv);
    // The agent has no window of its own: closing the last veil window never ends it.
    QApplication::setQuitOnLastWindowClosed(false);
    // Qt's own connection to the display is open: the agent's may follow (see AffichageX11).
    BoucleQt boucle;
    std::unique_ptr<FiltreFin> filtre;
    executer(
        boucle, [&boucle](Moteur& moteur) { return voileDeSession(moteur, boucle); },
        [](Moteur& moteur, Notifications& notifications) {
            return std::make_unique<FenetresAgent>(moteur, notifications);
        },
        [&](Moteur&, Delegue& delegue) {
            filtre = std::make_unique<FiltreFin>(application, delegue);
        });
}

} // namespace tavi
