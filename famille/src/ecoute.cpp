// The only translation unit that includes Boost.Beast and Asio: they cost most of a build.
#include "ecoute.h"

#include "adresse_client.h"
#include "depot.h"
#include "lecture.h"
#include "plafond_connexions.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <thread>
#include <type_traits>
#include <unordered_map>

namespace tavi::famille {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using Horloge = std::chrono::steady_clock;

namespace ecoute {

constexpr std::size_t limiteTete = 16 * 1024;
constexpr std::size_t champsMax = 100;
// Past a refusal what the client still sends is read and thrown away for a moment, so that it
// gets our answer rather than a reset; none of it is ever run as a request.
constexpr std::size_t vidangeMax = 16 * 1024 * 1024;
constexpr auto delaiVidange = std::chrono::seconds(2);
constexpr auto delaiEcriture = std::chrono::seconds(10);
// Descriptors kept out of the connection bound: the store, the listening socket, logs.
constexpr std::size_t descripteursReserves = 64;

// What is drained is never read: every connection may share one place to throw it.
std::array<char, 16384> poubelle;

std::string refus(const std::string& detail) {
    return nlohmann::json{{"detail", detail}}.dump();
}

class SessionBase {
public:
    virtual ~SessionBase() = default;
    // From any thread: ends the connection once the answer in progress, if any, is written.
    virtual void fermer() = 0;
};

struct Contexte {
    Contexte(ReglagesEcoute r, Ecoute::Traitement t)
        : reglages(std::move(r)), traiter(std::move(t)),
          plafond(reglages.connexionsParAdresse, connexionsPossibles(reglages.connexionsTotal)),
          travail(reglages.travailleurs) {}

    static std::size_t connexionsPossibles(std::size_t voulues) {
        rlimit limite{};
        if (getrlimit(RLIMIT_NOFILE, &limite) != 0 || limite.rlim_cur == RLIM_INFINITY)
            return voulues;
        std::size_t permis = limite.rlim_cur > descripteursReserves * 2
                                 ? limite.rlim_cur - descripteursReserves
                                 : limite.rlim_cur / 2;
        return std::min(voulues, permis);
    }

    void accepter();
    void ouvrir(tcp::socket prise);

    ReglagesEcoute reglages;
    Ecoute::Traitement traiter;
    PlafondConnexions plafond;
    std::mutex verrouSessions;
    std::unordered_map<SessionBase*, std::weak_ptr<SessionBase>> sessions;
    std::atomic<bool> arret = false;
    std::optional<asio::ssl::context> tls;
    asio::io_context io{1};
    tcp::acceptor accepteur{io};
    asio::steady_timer repos{io};
    asio::thread_pool travail;
    std::thread boucle;
};

template <class Flux>
class Session : public SessionBase, public std::enable_shared_from_this<Session<Flux>> {
public:
    static constexpr bool chiffree = !std::is_same_v<Flux, beast::tcp_stream>;

    Session(Contexte& c, tcp::socket prise, PlafondConnexions::Place p, std::string adresse_)
        : contexte(c), flux(faire(std::move(prise), c)), place(std::move(p)),
          adresse(std::move(adresse_)), accepteeA(Horloge::now()) {}

    ~Session() override {
        std::lock_guard garde(contexte.verrouSessions);
        contexte.sessions.erase(this);
    }

    void demarrer() {
        {
            std::lock_guard garde(contexte.verrouSessions);
            contexte.sessions.emplace(this, this->shared_from_this());
        }
        if (contexte.arret) return couper();
        // A new connection has one head deadline from its accept, handshake included: one
        // that sends nothing is gone as soon as one that dribbles.
        bas().expires_at(accepteeA + contexte.reglages.delaiTete);
        if constexpr (chiffree)
            flux.async_handshake(asio::ssl::stream_base::server,
                                 [soi = this->shared_from_this()](beast::error_code ec) {
                                     if (ec) return soi->couper();
                                     soi->attendre();
                                 });
        else
            attendre();
    }

    void fermer() override {
        asio::post(bas().get_executor(), [soi = this->shared_from_this()] {
            soi->arretDemande = true;
            if (!soi->occupee) soi->couper();
        });
    }

private:
    static Flux faire(tcp::socket prise, Contexte& c) {
        if constexpr (chiffree)
            return Flux(std::move(prise), *c.tls);
        else
            return Flux(std::move(prise));
    }

    beast::tcp_stream& bas() { return beast::get_lowest_layer(flux); }

    void attendre() {
        occupee = false;
        if (arretDemande) return couper();
        if (tampon.size() > 0) return lireTete();
        if (!premiere) bas().expires_after(contexte.reglages.gardeOuverte);
        flux.async_read_some(tampon.prepare(4096),
                             [soi = this->shared_from_this()](beast::error_code ec, std::size_t n) {
                                 if (ec) return soi->couper();
                                 soi->tampon.commit(n);
                                 soi->lireTete();
                             });
    }

    void lireTete() {
        analyseur.emplace();
        analyseur->header_limit(limiteTete);
        analyseur->body_limit(tailleMaxCorps);
        // From its first byte, not per read: a client sending one byte a second would
        // otherwise hold the connection for ever.
        bas().expires_at(premiere ? accepteeA + contexte.reglages.delaiTete
                                  : Horloge::now() + contexte.reglages.delaiTete);
        http::async_read_header(
            flux, tampon, *analyseur,
            [soi = this->shared_from_this()](beast::error_code ec, std::size_t) {
                if (ec) return soi->echec(ec);
                soi->examinerTete();
            });
    }

    void examinerTete() {
        premiere = false;
        const auto& tete = analyseur->get();
        if (static_cast<std::size_t>(std::distance(tete.begin(), tete.end())) > champsMax)
            return refuser(431, "La requête a trop d'en-têtes.");
        std::string cible(tete.target().data(), tete.target().size());
        chemin = cible.substr(0, cible.find('?'));
        if (!contexte.reglages.chemins.contains(chemin))
            return refuser(404, "Adresse inconnue sur ce serveur.");
        if (tete.method() != http::verb::post)
            return refuser(405, "Cette adresse n'accepte que la méthode POST.", true);
        if (beast::iequals(tete[http::field::expect], "100-continue")) {
            continuer.emplace(http::status::continue_, tete.version());
            bas().expires_after(delaiEcriture);
            return http::async_write(
                flux, *continuer,
                [soi = this->shared_from_this()](beast::error_code ec, std::size_t) {
                    if (ec) return soi->couper();
                    soi->lireCorps();
                });
        }
        lireCorps();
    }

    void lireCorps() {
        bas().expires_after(contexte.reglages.delaiCorps);
        http::async_read(flux, tampon, *analyseur,
                         [soi = this->shared_from_this()](beast::error_code ec, std::size_t) {
                             if (ec) return soi->echec(ec);
                             soi->traiter();
                         });
    }

    void echec(beast::error_code ec) {
        if (ec == http::error::header_limit || ec == http::error::buffer_overflow)
            return refuser(431, "Les en-têtes de la requête sont trop longs.");
        if (ec == http::error::body_limit) return refuser(400, "La requête dépasse 1 Mio.");
        // The peer went away, or was too slow: nobody is left to read an answer.
        if (ec == http::error::end_of_stream || ec == http::error::partial_message ||
            ec.category() != http::make_error_code(http::error::bad_method).category())
            return couper();
        refuser(400, "Requête mal formée.");
    }

    void traiter() {
        occupee = true;
        auto message = analyseur->release();
        analyseur.reset();
        RequeteHttp requete;
        requete.chemin = std::move(chemin);
        requete.adresse = adresse;
        for (const auto& champ : message) {
            std::string nom(champ.name_string().data(), champ.name_string().size());
            std::transform(nom.begin(), nom.end(), nom.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            requete.entetes.emplace(std::move(nom),
                                    std::string(champ.value().data(), champ.value().size()));
        }
        requete.corps = std::move(message.body());
        bool garder = message.keep_alive();
        unsigned version = message.version();
        asio::post(contexte.travail, [soi = this->shared_from_this(), requete = std::move(requete),
                                      garder, version]() mutable {
            ReponseHttp r;
            try {
                r = soi->contexte.traiter(requete);
            } catch (const std::exception& e) {
                std::cerr << "tavi-famille: " << requete.chemin << " : " << e.what() << '\n';
                r = {500, refus("Le serveur a un souci. Réessaie plus tard."), {}};
            }
            asio::post(soi->bas().get_executor(),
                       [soi, r = std::move(r), garder, version]() mutable {
                           soi->ecrire(std::move(r), garder, version);
                       });
        });
    }

    void ecrire(ReponseHttp r, bool garder, unsigned version) {
        occupee = true;
        reponse.emplace(static_cast<http::status>(r.statut), version);
        if (!r.corpsJson.empty()) {
            reponse->set(http::field::content_type, "application/json");
            reponse->body() = std::move(r.corpsJson);
        }
        for (const auto& [nom, valeur] : r.entetes)
            reponse->set(nom, valeur);
        reponse->keep_alive(garder && !arretDemande);
        reponse->prepare_payload();
        bas().expires_after(delaiEcriture);
        http::async_write(flux, *reponse,
                          [soi = this->shared_from_this()](beast::error_code ec, std::size_t) {
                              bool encore = soi->reponse->keep_alive();
                              soi->reponse.reset();
                              if (ec || soi->arretDemande) return soi->couper();
                              if (!encore) return soi->finir();
                              soi->attendre();
                          });
    }

    // Every refusal ends the connection: after a request we did not read to its end, the
    // next bytes are not a request we can trust (behind a proxy, someone else's).
    void refuser(int statut, const std::string& detail, bool seulementPost = false) {
        occupee = true;
        analyseur.reset();
        unsigned version = 11;
        reponse.emplace(static_cast<http::status>(statut), version);
        reponse->set(http::field::content_type, "application/json");
        if (seulementPost) reponse->set(http::field::allow, "POST");
        reponse->body() = refus(detail);
        reponse->keep_alive(false);
        reponse->prepare_payload();
        bas().expires_after(delaiEcriture);
        http::async_write(flux, *reponse,
                          [soi = this->shared_from_this()](beast::error_code ec, std::size_t) {
                              soi->reponse.reset();
                              if (ec) return soi->couper();
                              soi->finir();
                          });
    }

    // Closes without losing the answer just written: a close with unread bytes resets the
    // connection, and the client may then never read our answer.
    void finir() {
        // Nothing is owed to this client any more: a stop may cut the drain short.
        occupee = false;
        bas().expires_after(delaiVidange);
        if constexpr (chiffree) {
            flux.async_shutdown(
                [soi = this->shared_from_this()](beast::error_code) { soi->couper(); });
        } else {
            beast::error_code ignore;
            bas().socket().shutdown(tcp::socket::shutdown_send, ignore);
            vidanger(0);
        }
    }

    void vidanger(std::size_t lus) {
        flux.async_read_some(asio::buffer(poubelle), [soi = this->shared_from_this(),
                                                      lus](beast::error_code ec, std::size_t n) {
            if (ec || lus + n > vidangeMax) return soi->couper();
            soi->vidanger(lus + n);
        });
    }

    void couper() {
        beast::error_code ignore;
        bas().socket().shutdown(tcp::socket::shutdown_both, ignore);
        bas().close();
    }

    Contexte& contexte;
    Flux flux;
    PlafondConnexions::Place place;
    std::string adresse;
    Horloge::time_point accepteeA;
    // Bounded so that a head can never grow it past the header limit and a little.
    beast::flat_buffer tampon{limiteTete + 4096};
    std::optional<http::request_parser<http::string_body>> analyseur;
    std::optional<http::response<http::empty_body>> continuer;
    std::optional<http::response<http::string_body>> reponse;
    std::string chemin;
    bool premiere = true;
    bool occupee = false;
    bool arretDemande = false;
};

void Contexte::accepter() {
    accepteur.async_accept(asio::make_strand(io), [this](beast::error_code ec, tcp::socket prise) {
        if (arret || !accepteur.is_open()) return;
        if (ec) {
            // Out of descriptors or memory: accepting again at once would only spin.
            repos.expires_after(std::chrono::milliseconds(50));
            repos.async_wait([this](beast::error_code attente) {
                if (!attente) accepter();
            });
            return;
        }
        ouvrir(std::move(prise));
        accepter();
    });
}

void Contexte::ouvrir(tcp::socket prise) {
    beast::error_code ec;
    auto distant = prise.remote_endpoint(ec);
    if (ec) return;
    std::string cle = cleAdresse(distant.address().to_string());
    auto place = plafond.prendre(cle);
    if (!place) {
        // A reset rather than a close: refused connections leave no TIME_WAIT behind.
        prise.set_option(asio::socket_base::linger(true, 0), ec);
        return;
    }
    // Without it every answer waits for the peer's delayed ACK: 40 ms a request.
    prise.set_option(tcp::no_delay(true), ec);
    if (tls)
        std::make_shared<Session<beast::ssl_stream<beast::tcp_stream>>>(*this, std::move(prise),
                                                                        std::move(*place), cle)
            ->demarrer();
    else
        std::make_shared<Session<beast::tcp_stream>>(*this, std::move(prise), std::move(*place),
                                                     cle)
            ->demarrer();
}

} // namespace ecoute

struct Ecoute::Noyau : ecoute::Contexte {
    using Contexte::Contexte;
};

Ecoute::Ecoute(ReglagesEcoute reglages, Traitement traiter)
    : noyau(std::make_unique<Noyau>(std::move(reglages), std::move(traiter))) {
    auto& r = noyau->reglages;
    if (!r.certificat && !r.cle) return;
    if (!r.certificat || !r.cle) throw ErreurFamille("--certificat et --cle vont ensemble");
    try {
        auto& tls = noyau->tls.emplace(asio::ssl::context::tls_server);
        tls.set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_sslv2 |
                        asio::ssl::context::no_sslv3 | asio::ssl::context::no_tlsv1 |
                        asio::ssl::context::no_tlsv1_1 | asio::ssl::context::single_dh_use);
        tls.use_certificate_chain_file(*r.certificat);
        tls.use_private_key_file(*r.cle, asio::ssl::context::pem);
    } catch (const std::exception&) {
        throw ErreurFamille("certificat ou clé illisible : " + *r.certificat + ", " + *r.cle);
    }
}

Ecoute::~Ecoute() {
    arreter();
}

int Ecoute::demarrer() {
    auto& n = *noyau;
    auto echec = [&] {
        return ErreurFamille("impossible d'écouter sur " + n.reglages.hote + ":" +
                             std::to_string(n.reglages.port));
    };
    beast::error_code ec;
    tcp::resolver resolveur(n.io);
    auto points = resolveur.resolve(n.reglages.hote, std::to_string(n.reglages.port),
                                    tcp::resolver::passive | tcp::resolver::numeric_service, ec);
    if (ec || points.empty()) throw echec();
    tcp::endpoint point = *points.begin();
    n.accepteur.open(point.protocol(), ec);
    // No SO_REUSEPORT: a second server on the same port must fail, not share it.
    if (!ec) n.accepteur.set_option(asio::socket_base::reuse_address(true), ec);
    if (!ec) n.accepteur.bind(point, ec);
    if (!ec) n.accepteur.listen(asio::socket_base::max_listen_connections, ec);
    if (ec) {
        n.accepteur.close(ec);
        throw echec();
    }
    int port = n.accepteur.local_endpoint().port();
    n.accepter();
    n.boucle = std::thread([&n] {
        for (;;) {
            try {
                n.io.run();
                return;
            } catch (const std::exception& e) {
                std::cerr << "tavi-famille: écoute : " << e.what() << '\n';
            }
        }
    });
    return port;
}

void Ecoute::arreter() {
    auto& n = *noyau;
    if (!n.boucle.joinable()) return;
    n.arret = true;
    asio::post(n.io, [&n] {
        beast::error_code ignore;
        n.accepteur.close(ignore);
        n.repos.cancel();
    });
    std::vector<std::shared_ptr<ecoute::SessionBase>> ouvertes;
    {
        std::lock_guard garde(n.verrouSessions);
        for (auto& [_, faible] : n.sessions)
            if (auto session = faible.lock()) ouvertes.push_back(std::move(session));
    }
    for (auto& session : ouvertes)
        session->fermer();
    ouvertes.clear();
    // Answers being written get a moment; a client that never reads its answer does not
    // hold the stop for longer.
    n.plafond.attendreVide(Horloge::now() + std::chrono::seconds(5));
    n.io.stop();
    n.boucle.join();
    n.travail.join();
}

} // namespace tavi::famille
