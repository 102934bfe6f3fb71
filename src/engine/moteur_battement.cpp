#include "commun/jour.h"
#include "commun/texte.h"
#include "engine/moteur.h"
#include "observation/liste_applis.h"
#include "rules/consigne_json.h"
#include "rules/horloge.h"
#include "server/corps_battement.h"
#include "server/stockage.h"

#include <algorithm>
#include <utility>

namespace tavi {

namespace {

constexpr const char* cheminBattement = "/api/enfant/battement";
constexpr std::int64_t espacementSitesMs = 180'000;
constexpr std::int64_t espacementUsageMs = 180'000;
constexpr std::int64_t espacementListeMs = 600'000;
constexpr std::int64_t margeAvantPlageMs = 120'000;
constexpr std::int64_t delaiAvantPlageMs = 10'000;
// An application used less than this today is left out of the per-limit minutes.
constexpr double plancherAppliS = 6.0;
constexpr int refusAvantOubli = 2;

bool estActif(const std::optional<Interrupteur>& interrupteur) {
    return interrupteur && interrupteur->actif.value_or(false);
}

} // namespace

// What a heartbeat carries besides its body, to settle its batches when the answer comes.
struct Moteur::Envoi {
    nlohmann::json corps;
    bool avecSites = false;
    bool avecListe = false;
    std::int64_t envoi = 0;
    double secondesAuDepart = 0;
    std::uint64_t generation = 0;
};

// What the background pool reads before a heartbeat: the login agent's state, and the
// installed applications when their reading is due.
struct Moteur::LuAvantBattement {
    bool agentActif = false;
    std::optional<std::vector<ApplicationInstallee>> liste;
};

void Moteur::battre(std::function<void()> fini) {
    if (!relie_ || battementEnCours_) {
        if (fini) fini();
        return;
    }
    if (!api_.jeton()) {
        // Paired, but the token is not in hand: a request without it would be refused, and two
        // refusals unpair. The store is asked again instead.
        if (jetonLu_ && !trousseau_.occupe()) lireJeton();
        if (fini) fini();
        return;
    }
    if (jetonAEcrire_ && !trousseau_.occupe()) rangerJeton(*jetonAEcrire_);
    battementEnCours_ = true;

    const std::int64_t maintenant = p.horloges.monotoniqueMs();
    const bool lireListe = maintenant >= prochaineListe_;
    if (lireListe) prochaineListe_ = maintenant + espacementListeMs;

    std::weak_ptr<Moteur*> faible = vivant_;
    const std::uint64_t generation = generation_;
    Demarrage& demarrage = p.demarrage;
    const Applications& applications = p.applications;
    auto partage = std::make_shared<std::function<void()>>(std::move(fini));
    p.boucle.executer<LuAvantBattement>(
        [&demarrage, &applications, lireListe] {
            LuAvantBattement lu;
            lu.agentActif = demarrage.actif();
            if (lireListe) lu.liste = ListeApplis::lire(applications);
            return lu;
        },
        [faible, generation, partage](LuAvantBattement lu) {
            auto moteur = faible.lock();
            if (!moteur) return;
            (*moteur)->envoyerBattement(std::move(lu), generation, std::move(*partage));
        },
        // The next heartbeat must not wait for this one for ever: it is over, sent or not.
        [faible, partage](const std::string&) {
            auto moteur = faible.lock();
            if (!moteur) return;
            (*moteur)->battementEnCours_ = false;
            if (*partage) (*partage)();
        });
}

void Moteur::envoyerBattement(LuAvantBattement lu, std::uint64_t generation,
                              std::function<void()> fini) {
    agentActif_ = lu.agentActif;
    if (!relie_ || generation != generation_) {
        // Unpaired, or paired anew, while the disk was read: this heartbeat has no one to go to.
        battementEnCours_ = false;
        if (fini) fini();
        return;
    }

    auto envoi = std::make_shared<Envoi>();
    envoi->generation = generation;
    nlohmann::json& corps = envoi->corps;
    corps =
        clesFixesBattement(p.systeme, version(),
                           EtatAgent{agentActif_, !consigne_, refusAutomatisation_.empty(),
                                     compteur_.secondesDuJour(), p.horloges.demarrage(), lanceMs_});

    // A history the parents did not ask for is dropped, not kept.
    if (!consigne_ || !estActif(consigne_->historiqueSites)) {
        historique_.vider();
    } else if (p.horloges.monotoniqueMs() >= prochainLotSites_) {
        if (auto lot = historique_.prendre()) {
            corps["sites"] = std::move(*lot);
            prochainLotSites_ = p.horloges.monotoniqueMs() + espacementSitesMs;
            envoi->avecSites = true;
        }
    }

    if (consigne_ && consigne_->mac && consigne_->mac->limites) {
        std::set<std::string> ids;
        for (const LimiteMac& limite : *consigne_->mac->limites)
            ids.insert(limite.applis.begin(), limite.applis.end());
        nlohmann::json minutes = nlohmann::json::object();
        for (const std::string& id : ids)
            if (const double s = compteur_.secondesAppliDuJour(id); s >= plancherAppliS)
                minutes[id] = minutesUneDecimale(s);
        if (!minutes.empty()) corps["minutes_limites"] = std::move(minutes);
    }

    const std::int64_t maintenant = p.horloges.monotoniqueMs();
    if (consigne_ && estActif(consigne_->rapportApplis) && maintenant >= prochainLotApplis_) {
        corps["usage_applis"] = compteur_.lotUsage();
        prochainLotApplis_ = maintenant + espacementUsageMs;
    }

    // The list goes whenever it differs from the last one the server acknowledged, whatever
    // the rule set asks.
    if (lu.liste) {
        std::string empreinte = ListeApplis::empreinte(*lu.liste);
        if (listeEnvoyee_ != empreinte) {
            corps["applis_installees"] = ListeApplis::enregistrements(*lu.liste);
            listeEnvoyeeEnCours_ = std::move(empreinte);
            envoi->avecListe = true;
        }
    }

    envoi->envoi = p.horloges.monotoniqueMs();
    envoi->secondesAuDepart = compteur_.secondesDuJour();
    api_.appel("POST", cheminBattement, corps,
               [this, envoi, fini = std::move(fini)](ResultatApi<std::string> reponse) mutable {
                   sansArret("battement", [&] { finBattement(*envoi, std::move(reponse)); });
                   if (fini) fini();
               });
}

void Moteur::finBattement(const Envoi& envoi, ResultatApi<std::string> reponse) {
    battementEnCours_ = false;
    // An answer for a pairing that has since been forgotten settles nothing.
    if (envoi.generation != generation_) return;
    if (reponse) {
        if (envoi.avecSites) historique_.acquitter();
        refus401_ = 0;
        // Only the heartbeat that carried the list acknowledges it: a later one that got
        // through without it says nothing of a list that failed.
        if (envoi.avecListe && listeEnvoyeeEnCours_) {
            listeEnvoyee_ = std::move(listeEnvoyeeEnCours_);
            listeEnvoyeeEnCours_.reset();
        }
        recevoir(*reponse, envoi.envoi, p.horloges.monotoniqueMs(), envoi.secondesAuDepart);
        return;
    }
    // Any failure gives the sites back; the list that did not get through is sent again at its
    // next reading, and the batches keep their spacing.
    if (envoi.avecSites) historique_.echec();
    if (statutDe(reponse.error()) == 401 && ++refus401_ >= refusAvantOubli) oublier();
}

void Moteur::recevoir(const std::string& donnees, std::int64_t envoi, std::int64_t recu,
                      double secondesAuDepart) {
    auto decodee = decoderConsigne(donnees);
    if (!decodee) return; // the last good rule set stays
    Consigne consigne = std::move(decodee).value();

    p.reglages.grouper([&] {
        Horloge::noter(p.reglages, p.horloges, echantillon_, consigne.heureServeurMs.value_or(0),
                       envoi, recu);
        p.reglages.ecrire("consigne", Donnees{donnees});
        Stockage::resteBase(p.reglages,
                            std::pair{secondesAuDepart, jourLocal(maintenantServeur())});
        if (consigne.prenom) p.reglages.ecrire("prenom", *consigne.prenom);
    });

    // The child is shown the new reports before they start. The window asks the engine what
    // the parents now see, so the rule set is published before it is called.
    const bool rapportNouveau = p.reglages.booleen("accord_vu").value_or(false) &&
                                !Stockage::accordCouvre(p.reglages, consigne);
    consigne_ = std::move(consigne);
    derniereNouvelleMs_ = maintenantServeur();
    if (rapportNouveau && quandRapportActive) quandRapportActive();

    // A period about to start brings the next heartbeat forward, so that its rule set is fresh;
    // only starts count, by design.
    const std::int64_t maintenant = maintenantServeur();
    std::optional<std::int64_t> prochain;
    for (const Plage& plage : consigne_->programme.value_or(std::vector<Plage>{}))
        if (plage.debutMs > maintenant && (!prochain || plage.debutMs < *prochain))
            prochain = plage.debutMs;
    if (prochain && *prochain - maintenant < margeAvantPlageMs)
        prochainBattement_ =
            std::min(prochainBattement_, p.horloges.monotoniqueMs() + delaiAvantPlageMs);
    evaluer();
}

nlohmann::json Moteur::corpsPonctuel(bool actif, bool incertain) const {
    nlohmann::json corps = {{"actif", actif},
                            {"incertain", incertain},
                            {"plateforme", p.systeme.plateforme()},
                            {"version", version()},
                            {"utilise_jour_min", minutesUneDecimale(compteur_.secondesDuJour())}};
    ajouterLancement(corps, p.horloges.demarrage(), lanceMs_);
    return corps;
}

void Moteur::annoncer(const std::string& annonce, std::function<void()> fini) {
    if (!relie_ || !api_.jeton()) {
        if (fini) fini();
        return;
    }
    nlohmann::json corps = corpsPonctuel(agentActif_, true);
    corps["annonce"] = annonce;
    api_.appel("POST", cheminBattement, std::move(corps),
               [fini = std::move(fini)](const ResultatApi<std::string>&) {
                   if (fini) fini();
               });
}

void Moteur::signalerArret(std::function<void()> fini) {
    if (!relie_ || !api_.jeton()) {
        if (fini) fini();
        return;
    }
    api_.appel("POST", cheminBattement, corpsPonctuel(false, false),
               [fini = std::move(fini)](const ResultatApi<std::string>&) {
                   if (fini) fini();
               });
}

} // namespace tavi
