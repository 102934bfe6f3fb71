#include "commun/journal.h"
#include "commun/texte.h"
#include "engine/moteur.h"
#include "server/stockage.h"
#include "server/stockage.h"

#include <chrono>
#include <string>
#include <utility>

namespace tavi {

namespace {
constexpr std::chrono::seconds dureeMessage{8};
} // namespace

void Moteur::dire(const std::string& texte) {
    messageVoile_ = texte;
    observateurs_.signaler();
    std::weak_ptr<Moteur*> faible = vivant_;
    // A newer message is never cleared by the timer of an older one.
    p.boucle.plusTard(dureeMessage, [faible, texte] {
        if (auto moteur = faible.lock(); moteur && (*moteur)->messageVoile_ == texte) {
            (*moteur)->messageVoile_.reset();
            (*moteur)->observateurs_.signaler();
        }
    });
}

void Moteur::rejoindre(const std::string& code,
                       std::function<void(ResultatApi<Rejoindre>)> suite) {
    const std::string nom = p.systeme.nomOrdinateur().value_or("Ordinateur");
    api_.rejoindre(code, nom, version(), [this, suite = std::move(suite)](ResultatApi<Rejoindre> r) {
        // A refusal reaches the caller and changes nothing.
        if (!r) return suite(std::move(r));
        ++generation_;
        api_.definirJeton(r->jeton);
        jetonLu_ = true;
        p.reglages.grouper([&] {
            p.reglages.ecrire("prenom", r->enfant.prenom);
            p.reglages.ecrire("ordinateur_id", r->ordinateur.id);
        });
        relie_ = true;
        refus401_ = 0;
        prochainBattement_ = 0;

        // Done once the token is stored (or found unstorable) and the first heartbeat, which
        // follows the login agent's registration, is over: the rule set is then in place.
        auto reponse = std::make_shared<ResultatApi<Rejoindre>>(std::move(r));
        auto restant = std::make_shared<int>(2);
        auto fin = [reponse, restant, suite] {
            if (--*restant == 0) suite(*reponse);
        };
        rangerJeton((*reponse)->jeton, [fin](bool) { fin(); });
        enregistrerAgent([this, fin] { battre(fin); });
    });
}

void Moteur::oublier() {
    ++generation_;
    Stockage::oublier(p.reglages);
    compteur_.oublierApplis();
    historique_.vider();
    api_.definirJeton(std::nullopt);
    trousseau_.effacer();
    jetonAEcrire_.reset();
    // A new pairing is another computer for the server: it gets the list and the sites anew.
    listeEnvoyee_.reset();
    listeEnvoyeeEnCours_.reset();
    prochaineListe_ = 0;
    sitesSignales_.clear();
    refus401_ = 0;

    relie_ = false;
    consigne_.reset();
    regle_.reset();
    retirerVoile();
    appliVoilee_.reset();

    std::weak_ptr<Moteur*> faible = vivant_;
    Demarrage& demarrage = p.demarrage;
    p.boucle.executer<bool>(
        [&demarrage] {
            demarrage.desenregistrer();
            return demarrage.actif();
        },
        [faible](bool actif) {
            if (auto moteur = faible.lock()) (*moteur)->agentActif_ = actif;
        },
        [](const std::string&) {});
    observateurs_.signaler();
}

void Moteur::demanderTemps(int minutes, std::function<void()> fini) {
    api_.demanderTemps(minutes, [this, fini = std::move(fini)](ResultatApi<Api::Rien> r) {
        dire(r ? texte("C'est envoyé ! Tes parents vont répondre.") : messagePourEnfant(r.error()));
        if (fini) fini();
    });
}

void Moteur::utiliserTirelire(int minutes, std::function<void()> fini) {
    api_.utiliserTirelire(minutes, [this, minutes, fini = std::move(fini)](ResultatApi<Api::Rien> r) {
        if (!r) {
            dire(messagePourEnfant(r.error()));
            if (fini) fini();
            return;
        }
        dire(texteAvec("%d min de ta tirelire : c'est parti !", std::to_string(minutes)));
        // The extra minutes reach the rule now, not at the next beat.
        prochainBattement_ = 0;
        battre(std::move(fini));
    });
}

std::string Moteur::prenom() const {
    return p.reglages.texte("prenom").value_or("");
}

bool Moteur::accordDonne() const {
    return Stockage::accordCouvre(p.reglages, consigne_);
}

void Moteur::consentir() {
    Stockage::consentir(p.reglages, consigne_);
    observateurs_.signaler();
}

void Moteur::lireJeton() {
    const std::uint64_t generation = generation_;
    trousseau_.lire([this, generation](std::optional<std::string> jeton) {
        // A pairing made or forgotten meanwhile knows better than this reading.
        if (generation != generation_) return;
        const bool premiereLecture = !jetonLu_;
        jetonLu_ = true;
        if (jeton) {
            if (!api_.jeton()) {
                api_.definirJeton(*jeton);
                // The heartbeats held back for it go at the next tick, not a full period later.
                prochainBattement_ = 0;
            }
            relie_ = true;
        } else if (relie_ && premiereLecture) {
            journaliser("Tavi Home : relié mais sans jeton lisible dans le trousseau ; la "
                        "dernière consigne reste appliquée, les battements attendent le jeton");
        }
    });
}

// The store is shared with the other processes of the account: a pairing that one of them made
// (`tavi rejoindre`, another copy's welcome window) is this engine's too, without a restart.
// Its token is read through the serial door, and the heartbeat goes as soon as it is in hand.
void Moteur::adopterAppairage() {
    if (!p.reglages.texte("ordinateur_id")) return;
    ++generation_;
    relie_ = true;
    refus401_ = 0;
    prochainBattement_ = 0;
    consigne_ = Stockage::consigneRangee(p.reglages);
    api_.definirJeton(std::nullopt);
    lireJeton();
}

void Moteur::rangerJeton(const std::string& jeton, std::function<void(bool)> suite) {
    trousseau_.ecrire(jeton, [this, jeton, suite = std::move(suite)](bool range) {
        if (range) {
            if (jetonAEcrire_ == jeton) jetonAEcrire_.reset();
        } else {
            // Kept in memory and offered again with every heartbeat; the child is told, since the
            // pairing would be lost with the process.
            const bool nouveau = !jetonAEcrire_;
            jetonAEcrire_ = jeton;
            if (nouveau)
                dire(texte("Le trousseau est verrouillé : déverrouille-le pour que Tavi Home "
                           "garde le lien avec ta famille."));
        }
        if (suite) suite(range);
    });
}

void Moteur::lireEtatAgent(std::function<void()> suite) {
    std::weak_ptr<Moteur*> faible = vivant_;
    Demarrage& demarrage = p.demarrage;
    auto partagee = std::make_shared<std::function<void()>>(std::move(suite));
    p.boucle.executer<bool>(
        [&demarrage] { return demarrage.actif(); },
        [faible, partagee](bool actif) {
            auto moteur = faible.lock();
            if (!moteur) return;
            (*moteur)->agentActif_ = actif;
            if (*partagee) (*partagee)();
        },
        [faible, partagee](const std::string&) {
            if (faible.lock() && *partagee) (*partagee)();
        });
}

void Moteur::enregistrerAgent(std::function<void()> suite) {
    struct Issue {
        bool actif = false;
        std::optional<std::string> erreur;
    };
    std::weak_ptr<Moteur*> faible = vivant_;
    Demarrage& demarrage = p.demarrage;
    auto partagee = std::make_shared<std::function<void()>>(std::move(suite));
    p.boucle.executer<Issue>(
        [&demarrage] {
            if (demarrage.actif()) return Issue{true, std::nullopt};
            auto erreur = demarrage.enregistrer();
            return Issue{demarrage.actif(), std::move(erreur)};
        },
        [faible, partagee](Issue issue) {
            auto moteur = faible.lock();
            if (!moteur) return;
            (*moteur)->agentActif_ = issue.actif;
            // The one line the agent writes on its own: the next start tries again.
            if (issue.erreur) journaliser("Tavi Home : agent non enregistré (" + *issue.erreur + ")");
            if (*partagee) (*partagee)();
        },
        [faible, partagee](const std::string&) {
            if (faible.lock() && *partagee) (*partagee)();
        });
}

} // namespace tavi
