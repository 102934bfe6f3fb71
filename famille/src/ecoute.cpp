// The only translation unit that includes Boost.Beast and Asio: they cost most of a build.
#include "ecoute.h"

#include "adresse_client.h"
#include "depot.h"
#include "ecoute_contexte.h"
#include "ecoute_session.h"

namespace tavi::famille {

namespace ecoute {

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
    auto premiere = plafond.prendre(cle);
    // A full server makes room by ending the oldest connection still short of a whole
    // request: slow clients then cannot keep an agent out, however many addresses they have.
    auto obtention = !premiere.place && premiere.serveurPlein && evincerPlusAncienne()
                         ? plafond.prendre(cle, true)
                         : std::move(premiere);
    if (!obtention.place) {
        // A reset rather than a close: refused connections leave no TIME_WAIT behind.
        prise.set_option(asio::socket_base::linger(true, 0), ec);
        return;
    }
    // Without it every answer waits for the peer's delayed ACK: 40 ms a request.
    prise.set_option(tcp::no_delay(true), ec);
    if (tls)
        std::make_shared<Session<beast::ssl_stream<beast::tcp_stream>>>(
            *this, std::move(prise), std::move(*obtention.place), cle)
            ->demarrer();
    else
        std::make_shared<Session<beast::tcp_stream>>(*this, std::move(prise),
                                                     std::move(*obtention.place), cle)
            ->demarrer();
}

} // namespace ecoute

struct Ecoute::Noyau : ecoute::Contexte {
    using Contexte::Contexte;
};

Ecoute::Ecoute(ReglagesEcoute reglages, Traitement traiter, Verification verifier)
    : noyau(std::make_unique<Noyau>(std::move(reglages), std::move(traiter), std::move(verifier))) {
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
