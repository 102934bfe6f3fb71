#pragma once

#include "engine/moteur.h"
#include "engine/voile_console.h"
#include "fausse_boucle.h"
#include "fausse_navigation.h"
#include "fausse_session.h"
#include "fausses_applications.h"
#include "fausses_categories.h"
#include "fausses_horloges.h"
#include "faux_bureau.h"
#include "faux_coffre.h"
#include "faux_demarrage.h"
#include "faux_systeme.h"
#include "faux_transport.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "server/stockage.h"
#include "support/dossier_temporaire.h"
#include "support/fuseau.h"

#include <gtest/gtest.h>
#include <memory>

namespace tavi::test {

using namespace std::chrono_literals;
using nlohmann::json;

inline const std::string cheminBattement = "/api/enfant/battement";

// A rule set that gives the applications `applis` (`jeu` alone by default) `minutes` a day.
inline json limiteJeux(double minutes, const std::vector<std::string>& applis = {"jeu"}) {
    return {{"mac",
             {{"limites",
               {{{"id", "l1"}, {"nom", "Jeux"}, {"minutes", minutes}, {"applis", applis}}}}}}};
}

// The engine in virtual time on Paris time, with the real SQLite store in a temporary folder
// and the real browser worker; fakes for the desktop, the server, the secret store and the
// login agent. Background work runs on real threads and lands when the test says.
class BancMoteur : public testing::Test {
protected:
    BancMoteur() {
        boucle.quandLeTempsPasse = [this](std::int64_t ms) { horloges.avancer(ms); };
        boucle.retenus = [this] { return coffre.suspendu.retenus() + transport->lent.retenus(); };
    }

    // Paired earlier, with `consigne` received then (none when null) and sent again since.
    void relier(const json& consigne = nullptr) {
        reglages.ecrire("ordinateur_id", std::string("ordi-1"));
        Trousseau::ecrire(coffre, "jeton-1");
        if (consigne.is_null()) return;
        reglages.ecrire("consigne", Donnees{consigne.dump()});
        repondre(consigne);
    }
    // Every heartbeat without an answer of its own gets `consigne`.
    void repondre(const json& consigne) {
        transport->parDefaut = [consigne](const auto&) { return FauxTransport::ok(consigne); };
    }
    void construire(Notifications* notifications = nullptr) {
        moteur = std::make_unique<Moteur>(
            Plateforme{horloges, reglages, coffre, boucle, transport, session, bureau, navigation,
                       applications, categories, systeme, demarrage, nullptr, notifications});
    }
    void demarrer() {
        if (!moteur) construire();
        moteur->demarrer();
        boucle.terminerArrierePlan();
    }
    // `n` ticks, each with its background work landed before the next.
    void secondes(int n) {
        for (int i = 0; i < n; ++i) {
            boucle.avancer(1s);
            boucle.terminerArrierePlan();
        }
    }
    // The next tick beats.
    void battreAuProchainTic() {
        moteur->auReveil();
        secondes(1);
    }
    std::vector<json> battements() const {
        std::vector<json> corps;
        for (const auto& r : transport->requetes(cheminBattement))
            corps.push_back(r.corps);
        return corps;
    }
    // One reading of firefox: under `filtre` when given, else for the site history only.
    void lire(const Lecture& lecture, const std::optional<FiltreJSON>& filtre = {}, double dt = 1,
              bool devant = true) {
        moteur->appliquerLectures({{"firefox", devant, lecture}}, filtre.has_value(),
                                  !filtre.has_value(), filtre.value_or(FiltreJSON{}), dt);
    }
    VoileConsole& voile() { return dynamic_cast<VoileConsole&>(moteur->voile()); }

    FuseauFixe paris{"Europe/Paris"};
    DossierTemporaire dossier;
    ReglagesSqlite reglages{dossier / "reglages.sqlite"};
    FaussesHorloges horloges;
    FauxCoffre coffre;
    std::shared_ptr<FauxTransport> transport = std::make_shared<FauxTransport>();
    FausseSession session;
    FauxBureau bureau;
    FausseNavigation navigation;
    FaussesApplications applications;
    FaussesCategories categories;
    FauxSysteme systeme;
    FauxDemarrage demarrage;
    FausseBoucle boucle;
    std::unique_ptr<Moteur> moteur;
};

} // namespace tavi::test
