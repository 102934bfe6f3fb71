#include "app/delegue.h"

#include "app/fin_processus.h"
#include "app/signaux_arret.h"
#include "app/veille.h"
#include "commun/journal.h"

#include <utility>

namespace tavi {

namespace {

constexpr auto pasAttente = std::chrono::milliseconds(100);

// Steps aside: the message to the running copy has left, so this one may end.
[[noreturn]] void quitter() {
    finirProcessus(0);
}

} // namespace

Delegue::Delegue(Boucle& boucle, Moteur& moteur, Copies& copies, Alimentation& alimentation,
                 bool estAgent, FabriqueFenetres fabriqueFenetres)
    : boucle_(boucle), moteur_(moteur), copies_(copies), alimentation_(alimentation),
      estAgent_(estAgent), fabriqueFenetres_(std::move(fabriqueFenetres)) {}

Delegue::~Delegue() {
    alimentation_.avantArret = nullptr;
}

void Delegue::lancer() {
    // Paired is what the store records; the token itself sits in the secret store, which may
    // still be locked this early in a session, and a hand-over must not wait for it.
    if (estAgent_ || !moteur_.relie()) return continuer();
    std::weak_ptr<Delegue*> faible = vivant_;
    moteur_.enregistrerAgent([this, faible] {
        if (!faible.lock()) return;
        if (!moteur_.agentActif()) return continuer();
        attendreAgent(0, [this](bool autre) {
            if (autre && !estAgent_)
                ceder();
            else
                continuer();
        });
    });
}

void Delegue::attendreAgent(int essai, std::function<void(bool)> suite) {
    std::weak_ptr<Delegue*> faible = vivant_;
    copies_.autreInstance([this, faible, essai, suite = std::move(suite)](bool autre) mutable {
        if (!faible.lock()) return;
        if (autre || (essai + 1) * pasAttente >= attenteAgent) return suite(autre);
        boucle_.plusTard(pasAttente, [this, faible, essai, suite = std::move(suite)]() mutable {
            if (faible.lock()) attendreAgent(essai + 1, std::move(suite));
        });
    });
}

void Delegue::ceder() {
    copies_.montrer(quitter);
}

void Delegue::continuer() {
    alimentation_.avantArret = [this](Alimentation::Accord accord) {
        arretSysteme_ = true;
        accorderApres(boucle_, attenteArretSysteme, std::move(accord),
                      [this](auto fini) { moteur_.signalerArret(std::move(fini)); });
    };
    if (fabriqueFenetres_) fenetres_ = fabriqueFenetres_();
    veille_ = std::make_unique<Veille>(moteur_, alimentation_, boucle_);
    moteur_.demarrer();
    copies_.tenir(estAgent_, [this] { montrerSiBesoin(true); });
    montrerSiBesoin(false);
    signaux_ = std::make_unique<SignauxArret>(boucle_, [this](int) { auRevoir(); });
    lance_ = true;
    if (!estAgent_) passeMain_ = boucle_.repeter(periodeRelais, [this] { passerLaMain(); });
}

void Delegue::reconnaitre(bool agent) {
    if (agent == estAgent_) return;
    estAgent_ = agent;
    if (!lance_) return;
    if (!agent) {
        passeMain_ = boucle_.repeter(periodeRelais, [this] { passerLaMain(); });
        return;
    }
    passeMain_.reset();
    copies_.tenir(true, [this] { montrerSiBesoin(true); });
}

void Delegue::passerLaMain() {
    if (verificationEnCours_) return;
    verificationEnCours_ = true;
    std::weak_ptr<Delegue*> faible = vivant_;
    moteur_.lireEtatAgent([this, faible] {
        if (!faible.lock()) return;
        if (!moteur_.agentActif()) {
            verificationEnCours_ = false;
            return;
        }
        copies_.autreInstance([this, faible](bool autre) {
            if (!faible.lock()) return;
            verificationEnCours_ = false;
            if (autre && !estAgent_) ceder();
        });
    });
}

void Delegue::montrerSiBesoin(bool force) {
    if (!fenetres_) return;
    if (force) return fenetres_->montrerAccueil();
    std::weak_ptr<Delegue*> faible = vivant_;
    moteur_.lireEtatAgent([this, faible] {
        if (!faible.lock() || !fenetres_) return;
        if (moteur_.relie() && moteur_.accordDonne() && moteur_.agentActif()) return;
        fenetres_->montrerAccueil();
    });
}

ReponseFin Delegue::demandeFin(std::function<void()> terminer) {
    if (!moteur_.relie()) return ReponseFin::maintenant;
    if (!arretSysteme_) return ReponseFin::annuler;
    accorderApres(boucle_, attenteArretSysteme, std::move(terminer),
                  [this](auto fini) { moteur_.signalerArret(std::move(fini)); });
    return ReponseFin::plusTard;
}

void Delegue::auRevoir() {
    // At a power-off the stop was reported when it was announced: it is not reported twice.
    if (arretEnCours_ || !moteur_.relie() || arretSysteme_) finirProcessus(0);
    arretEnCours_ = true;
    moteur_.signalerArret([] { finirProcessus(0); });
    boucle_.plusTard(attenteSignal, [] { finirProcessus(0); });
}

} // namespace tavi
