#pragma once

#include "connexions.h"
#include "ecoute.h"
#include "http.h"
#include "limiteur.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

namespace tavi::famille {

struct OptionsServeur {
    std::string hote = "127.0.0.1";
    int port = 8080; // 0: any free port, read back with port()
    std::optional<std::string> certificat;
    std::optional<std::string> cle;
    // A token older than this gets a successor in "X-Tavi-Jeton" on its next 2xx answer.
    std::optional<std::int64_t> renouvelerApresMs;
    std::size_t connexionsBase = 1;
    std::size_t connexionsParAdresse = 32;
    std::size_t connexionsTotal = 4096;
    // Bodies being read or handled, all clients together: 64 heartbeats of the largest size.
    std::size_t octetsCorpsEnCours = 64 * 1024 * 1024;
};

// The family server: the agent's endpoints over HTTP (or HTTPS with a certificate), on one
// store. Runs on its own threads between demarrer() and arreter().
class Serveur {
public:
    Serveur(const std::string& cheminBase, OptionsServeur options);
    Serveur(const Serveur&) = delete;
    Serveur& operator=(const Serveur&) = delete;
    ~Serveur();

    // Binds the address (ErreurFamille when it cannot) and starts serving.
    void demarrer();
    int port() const { return port_; }
    bool tls() const;
    // Stops accepting, lets the requests in progress finish, ends the idle kept-alive
    // connections and the upkeep, then returns.
    void arreter();

private:
    struct Reponse {
        int statut = 200;
        std::optional<nlohmann::json> corps;
        std::optional<std::string> jetonNeuf;
    };
    using Traitement = std::function<Reponse(
        Depot&, const RequeteHttp&, const nlohmann::json& corps, std::int64_t maintenantMs)>;
    using TraitementEnfant = std::function<Reponse(
        Depot&, const Acces&, const nlohmann::json& corps, std::int64_t maintenantMs)>;

    struct Route {
        Traitement traitement;
        std::size_t corpsMax;
        bool jeton; // the token is checked from the head, before the body is read
    };

    // Bodies other than the heartbeat hold a few short texts.
    static constexpr std::size_t corpsCourt = 16 * 1024;

    // serveur.cpp: framing shared by every endpoint.
    ReponseHttp traiter(const RequeteHttp& requete);
    std::optional<ReponseHttp> verifierTete(const RequeteHttp& tete);
    static Acces authentifier(Depot& depot, const RequeteHttp& requete);
    void poster(const std::string& chemin, Traitement traitement,
                std::size_t corpsMax = corpsCourt);
    void posterEnfant(const std::string& chemin, TraitementEnfant traitement,
                      std::size_t corpsMax = corpsCourt);
    void entretenir();

    // routes_enfant.cpp: the agent's endpoints.
    void installerRoutes();
    Reponse appairer(Depot& depot, const RequeteHttp& requete, const nlohmann::json& corps,
                     std::int64_t maintenantMs);
    static Reponse battre(Depot& depot, const Acces& acces, const nlohmann::json& corps,
                          std::int64_t maintenantMs);
    static Reponse demander(Depot& depot, const Acces& acces, const nlohmann::json& corps,
                            std::int64_t maintenantMs);
    static Reponse utiliserTirelire(Depot& depot, const Acces& acces, const nlohmann::json& corps,
                                    std::int64_t maintenantMs);
    static Reponse signaler(Depot& depot, const Acces& acces, const nlohmann::json& corps,
                            std::int64_t maintenantMs);

    OptionsServeur options;
    Connexions connexions;
    Limiteur limiteur;
    std::map<std::string, Route> routes;
    std::unique_ptr<Ecoute> ecoute;
    int port_ = 0;
    std::thread entretien;
    std::mutex verrouEntretien;
    std::condition_variable reveilEntretien;
    bool fin = false;
};

} // namespace tavi::famille
