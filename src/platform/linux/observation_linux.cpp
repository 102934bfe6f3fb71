#include "platform/linux/observation_linux.h"

#include "commun/journal.h"
#include "platform/linux/affichage_x11.h"
#include "platform/linux/bureau_x11.h"
#include "platform/linux/index_entrees.h"

#include <chrono>
#include <string>
#include <utility>

namespace tavi {

namespace {

// New applications get installed while the agent runs; ten minutes is soon enough for the
// parents to see them and rare enough for a disk walk.
constexpr std::chrono::minutes periodeEntrees{10};

} // namespace

ObservationLinux::ObservationLinux(Boucle& laBoucle, EnvironnementXdg env)
    : boucle(laBoucle), environnement(std::move(env)), busSysteme(boucle, TypeBus::systeme),
      busSession(boucle, TypeBus::session), affichage(AffichageX11::ouvrir(boucle)),
      sessionLinux(boucle, busSysteme, busSession, affichage), applicationsXdg(environnement) {
    // In a Wayland session the compositor tells no one which window has the focus; X sees
    // only its own clients there, so it is not asked. The type is logind's, which may answer
    // after this: it is asked each time.
    bureauX11 = std::make_unique<BureauX11>(
        affichage,
        [this](const IndicesFenetre& indices) -> std::optional<IdentiteAppli> {
            if (!index) return std::nullopt;
            return index->identifier(indices);
        },
        [this] { return sessionLinux.typeSession() != "wayland"; });
    chargerEntrees();
    relecture = boucle.repeter(periodeEntrees, [this] { chargerEntrees(); });
    sessionLinux.quandPret([this, jeton = std::weak_ptr<int>(vivant)] {
        if (jeton.expired()) return;
        sessionPrete = true;
        if (!bureauX11->premierPlanObservable())
            journaliser(
                std::string(sessionLinux.typeSession() == "wayland"
                                ? "the front application cannot be known in a Wayland session"
                            : !affichage ? "no X display"
                                         : "no X window manager tells the front application") +
                ": usage is counted without a share per application");
        verifierPret();
    });
}

ObservationLinux::~ObservationLinux() = default;

void ObservationLinux::chargerEntrees() {
    boucle.executer<std::shared_ptr<const IndexEntrees>>(
        [env = environnement] { return IndexEntrees::charger(env); },
        [this, jeton = std::weak_ptr<int>(vivant)](std::shared_ptr<const IndexEntrees> lu) {
            if (jeton.expired()) return;
            index = lu;
            categoriesXdg.remplacer(std::move(lu));
            entreesLues = true;
            verifierPret();
        },
        // Without the entries, applications go unnamed and uncategorised; waiting for them
        // would hold back everything that waits for the observation to be ready.
        [this, jeton = std::weak_ptr<int>(vivant)](const std::string&) {
            if (jeton.expired()) return;
            entreesLues = true;
            verifierPret();
        });
}

void ObservationLinux::quandPret(std::function<void()> quand) {
    enAttente.push_back(std::move(quand));
    verifierPret();
}

void ObservationLinux::verifierPret() {
    if (!entreesLues || !sessionPrete) return;
    auto prets = std::move(enAttente);
    enAttente.clear();
    for (auto& quand : prets)
        quand();
}

std::vector<std::string> ObservationLinux::inobservable() const {
    std::vector<std::string> codes;
    if (!bureauX11->premierPlanObservable()) codes.push_back("application_au_premier_plan");
    if (!sessionLinux.secondesInactivite()) codes.push_back("inactivite");
    if (!sessionLinux.ecranVerrouille()) codes.push_back("ecran_verrouille");
    if (!sessionLinux.surConsole()) codes.push_back("sur_console");
    if (!sessionLinux.sessionActive()) codes.push_back("session_active");
    if (!sessionLinux.ecransEnVeille()) codes.push_back("ecrans_en_veille");
    if (!sessionLinux.veilleEcranRetenue()) codes.push_back("affichage_retenu");
    return codes;
}

Session& ObservationLinux::session() {
    return sessionLinux;
}
Bureau& ObservationLinux::bureau() {
    return *bureauX11;
}
Applications& ObservationLinux::applications() {
    return applicationsXdg;
}
CategoriesApplis& ObservationLinux::categories() {
    return categoriesXdg;
}
Navigation& ObservationLinux::navigation() {
    return navigationLinux;
}

} // namespace tavi
