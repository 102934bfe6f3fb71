#include "engine/moteur.h"

#include "commun/jour.h"
#include "commun/journal.h"
#include "engine/voile_console.h"
#include "rules/horloge.h"
#include "rules/programme.h"
#include "server/stockage.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <string>
#include <utility>

namespace tavi {

namespace {

// From this gap on, a tick was missed for longer than any busy loop explains.
constexpr double secondesArretMin = 30.0;

} // namespace

Moteur::Moteur(Plateforme plateforme)
    : p(std::move(plateforme)), vivant_(std::make_shared<Moteur*>(this)),
      trousseau_(p.boucle, p.coffre),
      api_(p.base ? *p.base : Stockage::serveur(p.reglages), std::nullopt, p.transport, p.boucle,
           p.reglages),
      compteur_(p.reglages, p.session, [this] { return maintenantServeur(); }),
      dernierTic_(p.horloges.monotoniqueMs()),
      dernierTicEveille_(p.horloges.monotoniqueEveilleMs()), lanceMs_(dernierTic_),
      navigateursInstalles_(p.boucle, p.applications, [this] { return p.horloges.muraleMs(); }),
      fileNavigateurs_(p.boucle, p.navigation) {
    // The pairing is in the defaults as much as in the secret store: until the store answers,
    // and while it refuses (a locked or emptied keyring), the last rule set keeps being
    // enforced. Only the heartbeat waits for the token.
    relie_ = p.reglages.texte("ordinateur_id").has_value();
    consigne_ = Stockage::consigneRangee(p.reglages);
    api_.jetonNeuf = [this](const std::string& jeton) { rangerJeton(jeton); };
}

Moteur::~Moteur() = default;

std::string Moteur::version() {
    constexpr std::string_view v = TAVI_VERSION;
    return v.empty() ? "1.0" : std::string(v);
}

Voile& Moteur::voile() {
    if (!voile_) voile_ = p.fabriqueVoile ? p.fabriqueVoile(*this) : nullptr;
    if (!voile_) voile_ = std::make_unique<VoileConsole>();
    return *voile_;
}

std::int64_t Moteur::maintenantServeur() const {
    return Horloge::maintenant(p.reglages, p.horloges, echantillon_);
}

std::optional<double> Moteur::utiliseDepuisConsigne() const {
    auto jour = p.reglages.texte("reste_jour_de");
    if (!jour || *jour != jourLocal(maintenantServeur())) return std::nullopt;
    const double base = p.reglages.nombre("reste_base_s").value_or(0);
    return std::max(0.0, compteur_.secondesDuJour() - base);
}

std::optional<double> Moteur::resteSecondes() const {
    if (!relie_ || !consigne_ || !consigne_->limiteJourMin || !(*consigne_->limiteJourMin > 0))
        return std::nullopt;
    const auto utilise = utiliseDepuisConsigne();
    // The server's remainder wins over the local count, corrected by what was used since.
    const double reste = consigne_->resteJourMin && utilise
                             ? *consigne_->resteJourMin * 60 - *utilise
                             : *consigne_->limiteJourMin * 60 - compteur_.secondesDuJour();
    return std::max(0.0, reste);
}

void Moteur::demarrer() {
    minuteurs_.push_back(
        p.boucle.repeter(std::chrono::seconds(1), [this] { sansArret("tic", [this] { tic(); }); }));
    activation_ =
        p.bureau.observerActivation([this](const Application&) { verifierAppliActive(); });
    lireJeton();
    lireEtatAgent();
    tic();
}

void Moteur::tic() {
    const std::int64_t maintenant = p.horloges.monotoniqueMs();
    // Not clamped: after a sleep the gap is large, and the counter refuses it; a stop of the
    // process is told apart below.
    const double ecart = static_cast<double>(maintenant - dernierTic_) / 1000.0;
    dernierTic_ = maintenant;
    const std::int64_t eveille = p.horloges.monotoniqueEveilleMs();
    const double ecartEveille = static_cast<double>(eveille - dernierTicEveille_) / 1000.0;
    dernierTicEveille_ = eveille;
    if (!relie_) adopterAppairage();

    // The rule veil stops the count, and so does the computer going to sleep; an
    // application's nap does not.
    const bool enPause = (voile().motif() && voile().motif()->estPause()) || versLaVeille_;
    // A long gap that the clock stopping during sleep saw too was no sleep: the process was
    // stopped (or starved) while the computer ran. Only its awake part may be use.
    const double arret = std::min(ecart, ecartEveille);
    if (arret >= secondesArretMin) {
        compteur_.ticApresArret(arret, enPause, appliAuPremierPlan());
        signalerIncident("agent_arrete", std::to_string(std::llround(arret)) + " s");
    } else {
        compteur_.tic(ecart, enPause, appliAuPremierPlan());
    }
    verifierNavigateurs(ecart);

    // One heartbeat every 30 s counted from the start of the previous one; a failed one is
    // simply retried on that cadence.
    if (relie_ && maintenant >= prochainBattement_ && !battementEnCours_) {
        prochainBattement_ = maintenant + 30'000;
        battre();
    }
    evaluer();
}

void Moteur::evaluer() {
    std::optional<RegleMac> candidate;
    if (relie_)
        candidate = Programme::regleCourante(consigne_, maintenantServeur(),
                                             utiliseDepuisConsigne(), compteur_.secondesDuJour());
    // Published only on change, so that observers are not woken every second.
    if (candidate != regle_) regle_ = candidate;

    Voile& v = voile();
    if (candidate && candidate->bloquerTout) {
        appliVoilee_.reset();
        v.montrer(MotifVoile::pause(*candidate));
    } else if (v.motif() && v.motif()->estPause()) {
        retirerVoile();
    }

    if (const auto motif = v.motif()) {
        if (motif->estPause() || encoreEnSieste(motif->regle))
            v.maintenir();
        else
            fermerVoileAppli();
    }
    verifierAppliActive();
    avertir();
    observateurs_.signaler();
}

void Moteur::sansArret(const char* quoi, const std::function<void()>& action) noexcept {
    try {
        action();
    } catch (const std::exception& e) {
        journaliser(std::string("Tavi Home : ") + quoi + " interrompu (" + e.what() + ")");
    } catch (...) {
        journaliser(std::string("Tavi Home : ") + quoi + " interrompu");
    }
}

void Moteur::retirerVoile() {
    Voile& v = voile();
    v.definirMotif(std::nullopt);
    v.retirerFenetres();
    if (v.presentation() != Presentation::normale) v.presenter(Presentation::normale);
}

} // namespace tavi
