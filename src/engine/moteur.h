#pragma once

#include "engine/observateurs.h"
#include "engine/plateforme.h"
#include "engine/trousseau_serie.h"
#include "engine/voile.h"
#include "observation/compteur.h"
#include "observation/file_navigateurs.h"
#include "observation/historique.h"
#include "observation/navigateurs_installes.h"
#include "rules/consigne.h"
#include "rules/horloge.h"
#include "rules/regle_mac.h"
#include "server/api.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavi {

// One browser's reading, and whether that browser was in front when the reading was decided.
struct LectureNavigateur {
    std::string identifiant;
    bool devant = false;
    Lecture lecture;
};

// The agent's one engine: it owns the usage counter, the site history, the server link and
// the veil, ticks every second, beats every 30 s, and decides every veil. Its member functions
// are spread over one file per concern: tick and evaluation (moteur.cpp), heartbeat, naps,
// web filter, child requests and pairing.
//
// Main thread only. What would block (the secret store, the login agent, the network, the
// disk) runs on the background pool and comes back to the main thread; whatever comes back
// after the engine is gone is dropped.
class Moteur {
public:
    explicit Moteur(Plateforme plateforme);
    ~Moteur();
    Moteur(const Moteur&) = delete;
    Moteur& operator=(const Moteur&) = delete;

    // The published state. Observers are called at the end of every evaluation, after `dire`
    // and `oublier`, and when a message is taken down; each re-reads what it shows.
    bool relie() const { return relie_; }
    const std::optional<Consigne>& consigne() const { return consigne_; }
    const std::optional<RegleMac>& regle() const { return regle_; }
    const std::optional<std::string>& messageVoile() const { return messageVoile_; }
    std::int64_t derniereNouvelleMs() const { return derniereNouvelleMs_; }
    [[nodiscard]] std::unique_ptr<Abonnement> observer(std::function<void()> quand) {
        return observateurs_.ajouter(std::move(quand));
    }
    // Called when a rule set asks for a report the child has not been shown yet.
    std::function<void()> quandRapportActive;

    // Seconds of use counted since the last rule set arrived; absent when none arrived today.
    std::optional<double> utiliseDepuisConsigne() const;
    // What is left of today's allowance: the server's remainder, less what was used since it
    // was sent; absent when unpaired or without a daily limit. Never negative.
    std::optional<double> resteSecondes() const;
    static std::string version();

    Voile& voile();
    Compteur& compteur() { return compteur_; }
    Api& api() { return api_; }
    // The server's time now (ms): the clock every instant of the rule set is compared with.
    std::int64_t maintenantServeur() const;

    // Tick and evaluation.
    void demarrer();
    void tic();
    void evaluer();
    // The computer is going to sleep: nothing counts until it wakes, whatever the seconds
    // before the system freezes the agent show.
    void versLaVeille() { versLaVeille_ = true; }
    // The computer woke from sleep (or the sleep did not happen): the next tick beats at once.
    void auReveil() {
        versLaVeille_ = false;
        prochainBattement_ = 0;
    }

    // Heartbeat. `fini`, when given, is called on the main thread once the exchange is over,
    // whatever its outcome (at once when no heartbeat starts).
    void battre(std::function<void()> fini = {});
    void recevoir(const std::string& donnees, std::int64_t envoi, std::int64_t recu,
                  double secondesAuDepart);
    void annoncer(const std::string& annonce, std::function<void()> fini = {});
    void signalerArret(std::function<void()> fini = {});

    // Naps.
    std::optional<AppliDeFace> appliAuPremierPlan() const;
    std::optional<RegleMac> sieste(const Application& application);
    void verifierAppliActive();
    void mettreEnSieste(const Application& application, const std::string& cause,
                        const std::string& titre);
    bool encoreEnSieste(const RegleMac& regle);
    void fermerVoileAppli();

    // Web filter.
    void verifierNavigateurs(double dt);
    void appliquerLectures(const std::vector<LectureNavigateur>& lectures, bool filtre, bool histo,
                           const FiltreJSON& f, double dt);
    void signalerSite(const std::string& domaine);

    // Something the child did to the agent that the parents must hear of (a veil put back, a
    // grab refused, the process stopped): at most one report of each nature a minute, sent
    // only while paired.
    void signalerIncident(const std::string& nature, const std::string& detail);

    // Child requests and pairing. `rejoindre` gives the server's answer once the token is
    // stored (or found unstorable, see `jetonEnAttente`) and the first heartbeat is over; a
    // refusal changes nothing. The others never fail: their outcome is said to the child.
    void rejoindre(const std::string& code, std::function<void(ResultatApi<Rejoindre>)> suite);
    void oublier();
    void demanderTemps(int minutes, std::function<void()> fini = {});
    void utiliserTirelire(int minutes, std::function<void()> fini = {});
    void dire(const std::string& texte);

    // The child's first name as the server last gave it; empty when none.
    std::string prenom() const;
    // Whether the child was shown what the parents see under the rule set in force, and the
    // record that they were (which stops `quandRapportActive` for it).
    bool accordDonne() const;
    void consentir();

    // A token the secret store has not accepted yet (a locked keyring): it is offered again
    // with every heartbeat, and the pairing lasts only as long as the process until then.
    bool jetonEnAttente() const { return jetonAEcrire_.has_value(); }
    // The login agent's state as last read (false until the first reading); read again, and
    // registered, on the background pool with `suite` on the main thread after.
    bool agentActif() const { return agentActif_; }
    void lireEtatAgent(std::function<void()> suite = {});
    void enregistrerAgent(std::function<void()> suite = {});

private:
    struct Envoi;
    struct LuAvantBattement;

    void retirerVoile();
    // Runs what the loop calls into the engine: an exception that data provoked is logged and
    // goes no further, so that it never ends the agent.
    static void sansArret(const char* quoi, const std::function<void()>& action) noexcept;
    void lireJeton();
    void adopterAppairage();
    void rangerJeton(const std::string& jeton, std::function<void(bool)> suite = {});
    void envoyerBattement(LuAvantBattement lu, std::uint64_t generation,
                          std::function<void()> fini);
    void finBattement(const Envoi& envoi, ResultatApi<std::string> reponse);
    nlohmann::json corpsPonctuel(bool actif, bool incertain) const;
    bool estNotreAppli(const Application& application) const;
    bool estLisible(const std::string& identifiant) const;

    Plateforme p;
    std::shared_ptr<Moteur*> vivant_;

    bool relie_ = false;
    std::optional<Consigne> consigne_;
    std::optional<RegleMac> regle_;
    std::optional<std::string> messageVoile_;
    Observateurs observateurs_;
    std::int64_t derniereNouvelleMs_ = 0;
    // The server clock sample this process took or confirmed itself: the stored one is the
    // child's to edit.
    std::optional<Horloge::Echantillon> echantillon_;

    TrousseauSerie trousseau_;
    Api api_;
    Compteur compteur_;
    std::unique_ptr<Voile> voile_;
    int refus401_ = 0;
    std::int64_t dernierTic_ = 0;
    // The previous tick on the clock that stops during sleep.
    std::int64_t dernierTicEveille_ = 0;
    // The boot-time monotonic ms at which this process's engine was made.
    std::int64_t lanceMs_ = 0;
    std::int64_t prochainBattement_ = 0;
    bool versLaVeille_ = false;
    bool battementEnCours_ = false;
    std::optional<std::int64_t> appliVoilee_;
    std::vector<std::unique_ptr<Minuterie>> minuteurs_;
    std::unique_ptr<Abonnement> activation_;
    std::int64_t prochainLotApplis_ = 0;
    Historique historique_;
    bool lectureEnCours_ = false;
    std::int64_t prochaineLectureFond_ = 0;
    std::int64_t prochainLotSites_ = 0;
    std::set<std::string> refusAutomatisation_;
    std::map<std::string, std::int64_t> sitesSignales_;
    std::map<std::string, std::int64_t> incidentsSignales_;
    std::int64_t prochaineListe_ = 0;
    std::optional<std::string> listeEnvoyee_;
    std::optional<std::string> listeEnvoyeeEnCours_;

    // Each pairing and each unpairing starts a new generation: an answer that comes back for an
    // older one settles nothing.
    std::uint64_t generation_ = 0;
    // Whether the secret store has answered once; a token it refused to keep; the login
    // agent's state as last read.
    bool jetonLu_ = false;
    std::optional<std::string> jetonAEcrire_;
    bool agentActif_ = false;
    NavigateursInstalles navigateursInstalles_;
    FileNavigateurs fileNavigateurs_;

    // Warnings before a rest (moteur_avertissements.cpp): each evaluation looks 5 minutes
    // ahead for the instant the computer, or the application in front, goes to rest, and
    // warns the child once within 5 minutes and once within 1, through the desktop's
    // notifications. `avertissements_` holds, per computer or application, the closest
    // warning given and the instant of the rest it was about; kept in the store, so that a
    // restart does not warn twice.
    struct Avertissement {
        std::int64_t seuil = 0; // ms before the rest
        std::int64_t reposMs = 0;
    };
    void avertir();
    void lireAvertissements();
    void suivreRepos(const std::string& cible, const std::optional<std::string>& appli,
                     const std::function<std::optional<RegleMac>(std::int64_t)>& reposDans);
    std::map<std::string, Avertissement> avertissements_;
    bool avertissementsLus_ = false;
};

} // namespace tavi
