#pragma once

// One HTTP connection of the listener, from its accept to its close.
// Included by ecoute.cpp only: Boost.Beast and Asio cost most of a build.
#include "ecoute_contexte.h"
#include "tete_requete.h"

namespace tavi::famille::ecoute {

template <class Flux>
class Session : public SessionBase, public std::enable_shared_from_this<Session<Flux>> {
public:
    static constexpr bool chiffree = !std::is_same_v<Flux, beast::tcp_stream>;

    Session(Contexte& c, tcp::socket prise, PlafondConnexions::Place p, std::string adresse_)
        : contexte(c), flux(faire(std::move(prise), c)), place(std::move(p)),
          adresse(std::move(adresse_)), accepteeA(Horloge::now()) {}

    ~Session() override { contexte.desinscrire(this); }

    void demarrer() {
        contexte.inscrire(this->shared_from_this());
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

    void evincer() override {
        asio::post(bas().get_executor(), [soi = this->shared_from_this()] { soi->couper(); });
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
        // From its first byte, not per read: a client sending one byte a second would
        // otherwise hold the connection for ever.
        bas().expires_at(premiere ? accepteeA + contexte.reglages.delaiTete
                                  : Horloge::now() + contexte.reglages.delaiTete);
        examines = 0;
        chercherFinDeTete();
    }

    // The head is gathered whole before it is parsed, so that its raw lines can be checked
    // for what the parser would quietly mend.
    void chercherFinDeTete() {
        std::string_view lu(static_cast<const char*>(tampon.data().data()), tampon.size());
        auto fin = lu.find("\r\n\r\n", examines < 3 ? 0 : examines - 3);
        if (fin == std::string_view::npos) {
            if (lu.size() >= limiteTete)
                return refuser(431, "Les en-têtes de la requête sont trop longs.");
            examines = lu.size();
            return flux.async_read_some(
                tampon.prepare(4096),
                [soi = this->shared_from_this()](beast::error_code ec, std::size_t n) {
                    if (ec) return soi->couper();
                    soi->tampon.commit(n);
                    soi->chercherFinDeTete();
                });
        }
        auto tete = lu.substr(0, fin + 4);
        if (tete.size() > limiteTete)
            return refuser(431, "Les en-têtes de la requête sont trop longs.");
        if (enTeteReplie(tete)) return refuser(400, "Requête mal formée.");
        analyseur.emplace();
        analyseur->header_limit(limiteTete + 1);
        // The path's own limit applies once the path is known.
        analyseur->body_limit(boost::none);
        beast::error_code ec;
        std::size_t pris = analyseur->put(asio::buffer(tete.data(), tete.size()), ec);
        if (ec) return echec(ec);
        if (!analyseur->is_header_done()) return refuser(400, "Requête mal formée.");
        tampon.consume(pris);
        examinerTete();
    }

    void examinerTete() {
        premiere = false;
        const auto& tete = analyseur->get();
        if (static_cast<std::size_t>(std::distance(tete.begin(), tete.end())) > champsMax)
            return refuser(431, "La requête a trop d'en-têtes.");
        // Without exactly one Host, a proxy in front and this server may each take the
        // request for someone else's.
        if (tete.count(http::field::host) != 1) return refuser(400, "Requête mal formée.");
        auto trouve = cheminDeCible({tete.target().data(), tete.target().size()});
        if (!trouve) return refuser(400, "Requête mal formée.");
        chemin = std::move(*trouve);
        auto route = contexte.reglages.chemins.find(chemin);
        if (route == contexte.reglages.chemins.end())
            return refuser(404, "Adresse inconnue sur ce serveur.");
        if (tete.method() != http::verb::post)
            return refuser(405, "Cette adresse n'accepte que la méthode POST.", true);
        corpsMax = route->second.corpsMax;
        analyseur->body_limit(corpsMax);
        if (analyseur->content_length().value_or(0) > corpsMax) return refuserTaille();
        if (route->second.teteVerifiee && contexte.verifier) return verifier();
        reserverCorps();
    }

    void verifier() {
        occupee = true;
        asio::post(contexte.travail, [soi = this->shared_from_this(),
                                      tete = requeteDe(analyseur->get(), chemin, adresse)] {
            std::optional<ReponseHttp> refus;
            try {
                refus = soi->contexte.verifier(tete);
            } catch (const std::exception& e) {
                std::cerr << "tavi-famille: " << tete.chemin << " : " << e.what() << '\n';
                refus = ReponseHttp{
                    500, ecoute::refus("Le serveur a un souci. Réessaie plus tard."), {}};
            }
            asio::post(soi->bas().get_executor(), [soi, refus = std::move(refus)]() mutable {
                soi->occupee = false;
                if (soi->arretDemande) return soi->couper();
                if (refus) return soi->refuser(std::move(*refus));
                soi->reserverCorps();
            });
        });
    }

    void reserverCorps() {
        // The parser reserves a declared length at once; a chunked body may grow to the limit.
        std::size_t attendu =
            analyseur->chunked() ? corpsMax : analyseur->content_length().value_or(0);
        if (attendu > petitCorps && !(reservation = contexte.budget.reserver(attendu)))
            return refuser({503,
                            refus("Le serveur est très occupé. Réessaie dans un instant."),
                            {{"Retry-After", "5"}}});
        const auto& tete = analyseur->get();
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
        if (ec == http::error::body_limit) return refuserTaille();
        // The peer went away, or was too slow: nobody is left to read an answer.
        if (ec == http::error::end_of_stream || ec == http::error::partial_message ||
            ec.category() != http::make_error_code(http::error::bad_method).category())
            return couper();
        refuser(400, "Requête mal formée.");
    }

    void refuserTaille() { refuser(400, "La requête dépasse " + taille(corpsMax) + "."); }

    void traiter() {
        occupee = true;
        contexte.achever(*this);
        auto message = analyseur->release();
        analyseur.reset();
        RequeteHttp requete = requeteDe(message, std::move(chemin), adresse);
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
            requete = {};
            asio::post(soi->bas().get_executor(),
                       [soi, r = std::move(r), garder, version]() mutable {
                           soi->ecrire(std::move(r), garder, version);
                       });
        });
    }

    void ecrire(ReponseHttp r, bool garder, unsigned version) {
        occupee = true;
        reservation.reset();
        reponse.emplace(static_cast<http::status>(r.statut), version);
        if (!r.corpsJson.empty()) {
            reponse->set(http::field::content_type, "application/json");
            reponse->body() = std::move(r.corpsJson);
        }
        for (const auto& [nom, valeur] : r.entetes)
            reponse->set(nom, valeur);
        // An endpoint's refusal ends the connection as the listener's own do.
        reponse->keep_alive(garder && !arretDemande && r.statut < 400);
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

    void refuser(int statut, const std::string& detail, bool seulementPost = false) {
        ReponseHttp r{statut, refus(detail), {}};
        if (seulementPost) r.entetes.emplace_back("Allow", "POST");
        refuser(std::move(r));
    }

    // Every refusal ends the connection: after a request we did not read to its end, the
    // next bytes are not a request we can trust (behind a proxy, someone else's).
    void refuser(ReponseHttp r) {
        occupee = true;
        analyseur.reset();
        reservation.reset();
        unsigned version = 11;
        reponse.emplace(static_cast<http::status>(r.statut), version);
        reponse->set(http::field::content_type, "application/json");
        for (const auto& [nom, valeur] : r.entetes)
            reponse->set(nom, valeur);
        reponse->body() = std::move(r.corpsJson);
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
    std::size_t examines = 0; // bytes of `tampon` already searched for the end of the head
    std::optional<http::request_parser<http::string_body>> analyseur;
    std::size_t corpsMax = 0;
    std::optional<BudgetCorps::Reservation> reservation;
    std::optional<http::response<http::empty_body>> continuer;
    std::optional<http::response<http::string_body>> reponse;
    std::string chemin;
    bool premiere = true;
    bool occupee = false;
    bool arretDemande = false;
};

} // namespace tavi::famille::ecoute
