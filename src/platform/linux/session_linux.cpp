#include "platform/linux/session_linux.h"

#include "platform/linux/affichage_x11.h"

#include <chrono>
#include <utility>

namespace tavi {

namespace {

// DPMS tells no one when the screens go dark: its state is read this often.
constexpr std::chrono::seconds periodeEcrans{2};
// The inhibitors are read ahead of the five minutes after which they decide.
constexpr double inactiviteAvantInhibitions = 280.0;

class Desabonnement : public Abonnement {
public:
    Desabonnement(std::weak_ptr<std::map<int, std::function<void(EvenementSession)>>> liste,
                  int rang)
        : observateurs(std::move(liste)), rangObservateur(rang) {}
    ~Desabonnement() override {
        if (auto liste = observateurs.lock()) liste->erase(rangObservateur);
    }

private:
    std::weak_ptr<std::map<int, std::function<void(EvenementSession)>>> observateurs;
    int rangObservateur;
};

} // namespace

SessionLinux::SessionLinux(Boucle& laBoucle, BusSd& systeme, BusSd& sessionBureau,
                           std::shared_ptr<AffichageX11> lAffichage)
    : boucle(laBoucle), affichage(std::move(lAffichage)), ecran(affichage), logind(systeme),
      inhibitions(systeme, sessionBureau), gnome(sessionBureau) {
    suiviActif = logind.observerActif([this](bool actif) {
        annoncer(actif ? EvenementSession::sessionAuPremierPlan
                       : EvenementSession::sessionEnArriere);
    });
    // The type may still be unknown here: it is asked at each reading.
    if (affichage) sondeEcrans = boucle.repeter(periodeEcrans, [this] { sonderEcrans(); });
}

SessionLinux::~SessionLinux() = default;

std::unique_ptr<Abonnement> SessionLinux::observer(std::function<void(EvenementSession)> quand) {
    const int rang = prochainRang++;
    observateurs->emplace(rang, std::move(quand));
    return std::make_unique<Desabonnement>(observateurs, rang);
}

void SessionLinux::annoncer(EvenementSession evenement) {
    // A copy: an observer may unsubscribe, or subscribe another, while it runs.
    auto copie = *observateurs;
    for (auto& [rang, quand] : copie)
        if (observateurs->count(rang)) quand(evenement);
}

void SessionLinux::sonderEcrans() {
    const bool eteints = ecransEnVeille().value_or(false);
    if (eteints == ecransEteints) return;
    ecransEteints = eteints;
    annoncer(eteints ? EvenementSession::ecransEnVeille : EvenementSession::ecransEveilles);
}

std::optional<bool> SessionLinux::ecranVerrouille() const {
    return logind.verrouille();
}

std::optional<bool> SessionLinux::surConsole() const {
    auto distant = logind.distant();
    if (!distant) return std::nullopt;
    return !*distant;
}

std::optional<double> SessionLinux::secondesInactivite() const {
    std::optional<double> secondes;
    if (typeSession() == "x11") secondes = ecran.secondesInactivite();
    if (!secondes) secondes = gnome.secondesInactivite();
    if (!secondes) secondes = logind.secondesInactivite();
    if (secondes && *secondes >= inactiviteAvantInhibitions) inhibitions.rafraichir();
    return secondes;
}

std::optional<bool> SessionLinux::veilleEcranRetenue() const {
    return inhibitions.veilleEcranRetenue();
}

std::optional<bool> SessionLinux::ecransEnVeille() const {
    // XWayland's DPMS is a stand-in: the compositor alone drives the screens there.
    if (typeSession() != "x11") return std::nullopt;
    return ecran.ecransEnVeille();
}

std::optional<bool> SessionLinux::sessionActive() const {
    return logind.actif();
}

std::string SessionLinux::typeSession() const {
    if (auto type = logind.type(); type && !type->empty() && *type != "unspecified") return *type;
    // An X display with no word of Wayland anywhere: an X11 session started by hand.
    if (affichage && affichage->connecte()) return "x11";
    return "inconnu";
}

void SessionLinux::quandPret(std::function<void()> quand) {
    logind.quandPret(std::move(quand));
}

} // namespace tavi
