#include "engine/moteur.h"
#include "rules/programme.h"

#include <algorithm>

namespace tavi {

namespace {

// The name in the nap's title: the application's, else its identifier, else a question mark.
std::string nomAffiche(const Application& application) {
    if (!application.nom.empty()) return application.nom;
    return application.identifiant.value_or("?");
}

// Naps the rule evaluation never ends: they belong to the web filter, and last until the child
// closes the veil.
bool siesteDuFiltre(const std::string& cause) {
    return cause == "site" || cause == "navigateur" || cause == "automatisation";
}

} // namespace

bool Moteur::estNotreAppli(const Application& application) const {
    return application.pid == p.bureau.notrePid();
}

std::optional<AppliDeFace> Moteur::appliAuPremierPlan() const {
    auto devant = p.bureau.applicationAuPremierPlan();
    if (!devant || estNotreAppli(*devant)) return std::nullopt;
    if (!devant->identifiant || devant->identifiant->empty()) return std::nullopt;
    // The login window is not use.
    if (*devant->identifiant == "com.apple.loginwindow") return std::nullopt;
    return AppliDeFace{*devant->identifiant, devant->nom.empty() ? *devant->identifiant : devant->nom};
}

std::optional<RegleMac> Moteur::sieste(const Application& application) {
    if (!relie_ || !application.identifiant) return std::nullopt;
    if (regle_ && !regle_->bloquerTout && Programme::estCoupee(application, *regle_, p.categories))
        return regle_;
    return Programme::siesteAppli(
        *application.identifiant, consigne_,
        [this](const std::string& id) { return compteur_.secondesAppliDuJour(id); },
        maintenantServeur());
}

void Moteur::verifierAppliActive() {
    // The rule veil already covers everything.
    if (regle_ && regle_->bloquerTout) return;
    auto devant = p.bureau.applicationAuPremierPlan();
    if (!devant || estNotreAppli(*devant)) return;
    auto regle = sieste(*devant);
    if (!regle) return;
    // Brought back to the front, it is hidden again within a second, and at once on activation.
    p.bureau.masquer(*devant);
    appliVoilee_ = devant->pid;
    voile().montrer(MotifVoile::appli(nomAffiche(*devant), std::move(*regle)));
}

void Moteur::mettreEnSieste(const Application& application, const std::string& cause,
                            const std::string& titre) {
    p.bureau.masquer(application);
    appliVoilee_ = application.pid;
    RegleMac regle;
    regle.bloquees = {application.identifiant.value_or("")};
    regle.cause = cause;
    regle.titre = titre;
    std::string nom = cause == "site" || application.nom.empty() ? titre : application.nom;
    voile().montrer(MotifVoile::appli(std::move(nom), std::move(regle)));
}

bool Moteur::encoreEnSieste(const RegleMac& regle) {
    if (siesteDuFiltre(regle.cause) || !appliVoilee_) return true;
    const auto ouvertes = p.bureau.applicationsOuvertes();
    auto it = std::find_if(ouvertes.begin(), ouvertes.end(),
                           [&](const Application& a) { return a.pid == *appliVoilee_; });
    // It quit: the veil stays, deliberately, until the child closes it.
    if (it == ouvertes.end()) return true;
    return sieste(*it).has_value();
}

void Moteur::fermerVoileAppli() {
    if (voile().motif() && !voile().motif()->estPause()) retirerVoile();
    appliVoilee_.reset();
    messageVoile_.reset();
}

} // namespace tavi
