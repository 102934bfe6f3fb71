#include "serveur.h"

#include "lecture.h"
#include "temps.h"

#include <dirent.h>
#include <httplib.h>
#include <iostream>
#include <netinet/in.h>
#include <sys/socket.h>

namespace tavi::famille {

using nlohmann::json;

namespace {

// Each connection kept alive holds one worker between two heartbeats: a family has a few
// computers, the load test fifty; this leaves room for both.
constexpr std::size_t travailleurs = 128;
// Longer than the agent's 30-second heartbeat, or no connection would ever be reused.
constexpr time_t garderOuverteS = 45;
// Past the 1 MiB bound a chunked body is still read and thrown away up to this much, so that
// the client gets our answer instead of a reset connection.
constexpr std::size_t vidangeMax = 16 * 1024 * 1024;

void repondre(httplib::Response& res, int statut, const json& corps) {
    res.status = statut;
    res.set_content(corps.dump(), "application/json");
}

void refuser(httplib::Response& res, int statut, const std::string& detail) {
    repondre(res, statut, {{"detail", detail}});
}

std::string detailParDefaut(int statut) {
    switch (statut) {
    case 400:
        return "Requête mal formée.";
    case 404:
        return "Adresse inconnue sur ce serveur.";
    case 413:
        return "La requête dépasse 1 Mio.";
    default:
        return statut >= 500 ? "Le serveur a un souci. Réessaie plus tard." : "Requête refusée.";
    }
}

// cpp-httplib 0.11 waits out the keep-alive delay of every idle connection before stop()
// returns, and offers no hook on accepted sockets. Shutting down the reading side of the
// connected sockets whose local port is ours wakes those workers at once, while a worker that
// already read its request can still write the answer; shutdown, unlike close, leaves the
// descriptor to its owner.
void reveillerConnexionsEntrantes(int port) {
    DIR* dossier = opendir("/proc/self/fd");
    if (!dossier) return;
    while (dirent* entree = readdir(dossier)) {
        int fd = std::atoi(entree->d_name);
        if (fd <= 2 || fd == dirfd(dossier)) continue;
        sockaddr_storage adresse{};
        socklen_t taille = sizeof adresse;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&adresse), &taille) != 0) continue;
        int local = adresse.ss_family == AF_INET
                        ? ntohs(reinterpret_cast<sockaddr_in*>(&adresse)->sin_port)
                    : adresse.ss_family == AF_INET6
                        ? ntohs(reinterpret_cast<sockaddr_in6*>(&adresse)->sin6_port)
                        : -1;
        sockaddr_storage pair{};
        socklen_t taillePair = sizeof pair;
        // Only connected sockets: the listening one has no peer.
        if (local == port && getpeername(fd, reinterpret_cast<sockaddr*>(&pair), &taillePair) == 0)
            shutdown(fd, SHUT_RD);
    }
    closedir(dossier);
}

} // namespace

Serveur::Serveur(const std::string& cheminBase, OptionsServeur options_)
    : options(std::move(options_)), connexions(cheminBase, options.connexionsBase),
      limiteur(10, 10 * 60 * 1000) {
    if (options.certificat || options.cle) {
        if (!options.certificat || !options.cle)
            throw ErreurFamille("--certificat et --cle vont ensemble");
        auto securise =
            std::make_unique<httplib::SSLServer>(options.certificat->c_str(), options.cle->c_str());
        if (!securise->is_valid())
            throw ErreurFamille("certificat ou clé illisible : " + *options.certificat + ", " +
                                *options.cle);
        http = std::move(securise);
    } else {
        http = std::make_unique<httplib::Server>();
    }
    configurer();
    installerRoutes();
}

Serveur::~Serveur() {
    arreter();
}

bool Serveur::tls() const {
    return options.certificat.has_value();
}

void Serveur::configurer() {
    http->new_task_queue = [] { return new httplib::ThreadPool(travailleurs); };
    // Without it every answer waits for the peer's delayed ACK: 40 ms a request.
    http->set_tcp_nodelay(true);
    http->set_keep_alive_timeout(garderOuverteS);
    http->set_keep_alive_max_count(1000);
    http->set_payload_max_length(tailleMaxCorps);
    // The library's default adds SO_REUSEPORT, with which a second server started on the
    // same port would silently share it with this one instead of failing.
    http->set_socket_options([this](int prise) {
        int oui = 1;
        setsockopt(prise, SOL_SOCKET, SO_REUSEADDR, &oui, sizeof oui);
        priseEcoute = prise;
    });
    // Errors raised by the library itself (unknown path, unreadable request line) get the
    // same JSON "detail" as ours; our own answers already carry one.
    http->set_error_handler(
        httplib::Server::HandlerWithResponse([](const httplib::Request&, httplib::Response& res) {
            if (res.body.empty()) {
                std::string detail = detailParDefaut(res.status);
                // Over 1 MiB is a refusal of the client's body, like any other bad body.
                refuser(res, res.status == 413 ? 400 : res.status, detail);
            }
            return httplib::Server::HandlerResponse::Handled;
        }));
    http->set_exception_handler(
        [](const httplib::Request& req, httplib::Response& res, std::exception_ptr) {
            std::cerr << "tavi-famille: erreur interne sur " << req.path << '\n';
            refuser(res, 500, detailParDefaut(500));
        });
}

void Serveur::poster(const std::string& chemin, Traitement traitement) {
    http->Post(chemin, [this, traitement](const httplib::Request& req, httplib::Response& res,
                                          const httplib::ContentReader& lecteur) {
        std::string corps;
        bool tropGros = false;
        std::size_t vidange = 0;
        bool lu = lecteur([&](const char* donnees, std::size_t taille) {
            if (!tropGros && corps.size() + taille <= tailleMaxCorps) {
                corps.append(donnees, taille);
                return true;
            }
            tropGros = true;
            corps.clear();
            vidange += taille;
            return vidange <= vidangeMax;
        });
        if (tropGros || res.status == 413) {
            res.set_header("Connection", "close");
            return refuser(res, 400, "La requête dépasse 1 Mio.");
        }
        if (!lu) return refuser(res, 400, "Le corps de la requête est illisible.");
        try {
            json document = lireObjet(corps);
            auto reponse = connexions.avec([&](Depot& depot) {
                Transaction t(depot.base());
                auto r = traitement(depot, req, document, maintenantMs());
                t.valider();
                return r;
            });
            if (reponse.jetonNeuf) res.set_header("X-Tavi-Jeton", *reponse.jetonNeuf);
            if (reponse.corps)
                repondre(res, reponse.statut, *reponse.corps);
            else
                res.status = reponse.statut;
        } catch (const ErreurRequete& e) {
            refuser(res, e.statut, e.what());
        } catch (const std::exception& e) {
            std::cerr << "tavi-famille: " << req.path << " : " << e.what() << '\n';
            refuser(res, 500, detailParDefaut(500));
        }
    });
}

void Serveur::posterEnfant(const std::string& chemin, TraitementEnfant traitement) {
    poster(chemin, [this, traitement](Depot& depot, const httplib::Request& req, const json& corps,
                                      std::int64_t maintenant) {
        std::string autorisation = req.get_header_value("Authorization");
        const std::string prefixe = "Bearer ";
        if (autorisation.size() <= prefixe.size() || autorisation.size() > 512 ||
            autorisation.compare(0, prefixe.size(), prefixe) != 0)
            throw ErreurRequete(401, "Cet ordinateur n'est pas relié à ta famille.");
        auto acces = depot.authentifier(autorisation.substr(prefixe.size()));
        if (!acces)
            throw ErreurRequete(401, "Cet ordinateur n'est plus relié à ta famille. Demande un "
                                     "nouveau code à tes parents.");
        auto reponse = traitement(depot, *acces, corps, maintenant);
        if (reponse.statut >= 200 && reponse.statut < 300 && options.renouvelerApresMs &&
            maintenant - acces->jetonCreeMs >= *options.renouvelerApresMs)
            reponse.jetonNeuf = depot.renouvelerJeton(*acces, maintenant);
        return reponse;
    });
}

void Serveur::demarrer() {
    if (ecoute.joinable()) return;
    port_ = options.port == 0
                ? http->bind_to_any_port(options.hote)
                : (http->bind_to_port(options.hote, options.port) ? options.port : -1);
    if (port_ < 0)
        throw ErreurFamille("impossible d'écouter sur " + options.hote + ":" +
                            std::to_string(options.port));
    // cpp-httplib listens with a backlog of 5: fifty computers connecting at once would see
    // connections dropped. Listening again on the bound socket only raises the backlog.
    if (priseEcoute >= 0) ::listen(priseEcoute, SOMAXCONN);
    ecoute = std::thread([this] { http->listen_after_bind(); });
    entretien = std::thread([this] { entretenir(); });
}

void Serveur::entretenir() {
    std::unique_lock garde(verrouEntretien);
    do {
        garde.unlock();
        try {
            connexions.avec([](Depot& depot) { depot.elaguer(maintenantMs()); });
        } catch (const std::exception& e) {
            std::cerr << "tavi-famille: entretien : " << e.what() << '\n';
        }
        garde.lock();
    } while (!reveilEntretien.wait_for(garde, std::chrono::hours(1), [this] { return fin; }));
}

void Serveur::arreter() {
    {
        std::lock_guard garde(verrouEntretien);
        fin = true;
    }
    reveilEntretien.notify_all();
    if (entretien.joinable()) entretien.join();
    if (!ecoute.joinable()) return;
    http->stop();
    reveillerConnexionsEntrantes(port_);
    ecoute.join();
}

} // namespace tavi::famille
