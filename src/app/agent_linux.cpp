#include "app/agent_linux.h"

#include "commun/journal.h"
#include "platform/linux/demarrage_gardien.h"
#include "platform/linux/demarrage_linux.h"
#include "platform/linux/dossiers_linux.h"
#include "platform/linux/environnement_xdg.h"

#include <atomic>
#include <chrono>
#include <utility>

namespace tavi {

AgentLinux::AgentLinux(Boucle& boucle, Reglages& reglages, Coffre& coffre, Demarrage& demarrage,
                       FabriqueVoile fabriqueVoile, LienServeur lien)
    : observation_(boucle, EnvironnementXdg::duProcessus()),
      notifications_(observation_.busDeSession()) {
    moteur_ = std::make_unique<Moteur>(Plateforme{
        .horloges = horloges_,
        .reglages = reglages,
        .coffre = coffre,
        .boucle = boucle,
        .transport = std::move(lien.transport),
        .session = observation_.session(),
        .bureau = observation_.bureau(),
        .navigation = observation_.navigation(),
        .applications = observation_.applications(),
        .categories = observation_.categories(),
        .systeme = systeme_,
        .demarrage = demarrage,
        .fabriqueVoile = std::move(fabriqueVoile),
        .notifications = &notifications_,
        .base = std::move(lien.base),
    });
}

AgentLinux::~AgentLinux() = default;

// The session's secret store, counting the removals it has carried out.
class AgentDeSession::CoffreSuivi : public Coffre {
public:
    std::optional<std::string> lire(const std::string& service,
                                    const std::string& compte) const override {
        return coffre.lire(service, compte);
    }
    void ecrire(const std::string& service, const std::string& compte,
                const std::string& secret) override {
        coffre.ecrire(service, compte, secret);
    }
    void supprimer(const std::string& service, const std::string& compte) override {
        coffre.supprimer(service, compte);
        ++retraits;
    }

    CoffreSecret coffre;
    std::atomic<int> retraits = 0;
};

// The session's login agent, counting the removals it has carried out.
class AgentDeSession::DemarrageSuivi : public Demarrage {
public:
    explicit DemarrageSuivi(std::unique_ptr<Demarrage> leDemarrage)
        : demarrage(std::move(leDemarrage)) {}

    bool actif() const override { return demarrage->actif(); }
    std::optional<std::string> enregistrer() override { return demarrage->enregistrer(); }
    void desenregistrer() override {
        demarrage->desenregistrer();
        ++retraits;
    }

    std::unique_ptr<Demarrage> demarrage;
    std::atomic<int> retraits = 0;
};

namespace {

std::unique_ptr<ReglagesSqlite> reglagesDeSession() {
    if (auto fichier = Dossiers::reglages()) return std::make_unique<ReglagesSqlite>(*fichier);
    journaliser("Tavi Home : pas de dossier d'état (ni XDG_STATE_HOME ni HOME) ; les réglages "
                "ne dureront que le temps de ce processus");
    return std::make_unique<ReglagesSqlite>(ReglagesSqlite::enMemoire);
}

std::unique_ptr<Demarrage> demarrageDeSession(std::optional<std::filesystem::path> executable,
                                              bool sousGardien) {
    OptionsDemarrage options = DemarrageLinux::duProcessus().options();
    if (executable) options.executable = std::move(*executable);
    auto demarrage = std::make_unique<DemarrageLinux>(std::move(options));
    if (sousGardien) return std::make_unique<DemarrageGardien>(std::move(demarrage));
    return demarrage;
}

} // namespace

AgentDeSession::AgentDeSession(Boucle& boucle, std::optional<std::filesystem::path> executableAgent,
                               FabriqueVoile fabriqueVoile)
    : AgentDeSession(boucle, std::move(executableAgent), std::move(fabriqueVoile),
                     LienServeur::deCeProcessus()) {}

AgentDeSession::AgentDeSession(Boucle& boucle, std::optional<std::filesystem::path> executableAgent,
                               FabriqueVoile fabriqueVoile, LienServeur lien)
    : boucle_(boucle), relais_(lien.relais), reglages_(reglagesDeSession()),
      coffre_(std::make_unique<CoffreSuivi>()),
      demarrage_(std::make_unique<DemarrageSuivi>(
          demarrageDeSession(std::move(executableAgent), relais_.has_value()))),
      agent_(std::make_unique<AgentLinux>(boucle, *reglages_, *coffre_, *demarrage_,
                                          std::move(fabriqueVoile), std::move(lien))) {}

AgentDeSession::~AgentDeSession() {
    attente_.reset();
    agent_.reset();
}

void AgentDeSession::oublier(std::function<void()> fini) {
    const int jetons = coffre_->retraits + 1;
    const int agents = demarrage_->retraits + 1;
    moteur().oublier();
    // The removals report nothing back; they are rare enough to look at every 50 ms.
    attente_ = boucle_.repeter(std::chrono::milliseconds(50),
                               [this, jetons, agents, fini = std::move(fini)] {
                                   if (coffre_->retraits < jetons || demarrage_->retraits < agents)
                                       return;
                                   auto suite = fini;
                                   attente_.reset();
                                   suite();
                               });
}

} // namespace tavi
