#pragma once

#include "http.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tavi::famille {

// How one served path takes its requests.
struct CheminServi {
    std::size_t corpsMax = 16 * 1024;
    // The head goes to the listener's `verifier` before a byte of the body is read: a client
    // without a valid token then never has a body held or parsed for it.
    bool teteVerifiee = false;
};

struct ReglagesEcoute {
    std::string hote = "127.0.0.1";
    int port = 8080; // 0: any free port
    std::optional<std::string> certificat;
    std::optional<std::string> cle;
    // The paths served, all POST: any other path gets a 404, another method a 405.
    std::map<std::string, CheminServi> chemins;
    // A family behind one NAT has a few computers with one connection each; a reverse proxy
    // in front needs more, since every client then has its address.
    std::size_t connexionsParAdresse = 32;
    // When every place is taken, the oldest connection that has not yet sent a whole request
    // makes room for the newcomer: filling the server then takes more than slow clients.
    std::size_t connexionsTotal = 4096;
    // The bodies being read or handled, all connections together; past it a request gets 503.
    std::size_t octetsCorpsEnCours = 64 * 1024 * 1024;
    // A client has this long from its first byte (from the accept for a new connection) to
    // send a whole request head, and this long again for the body.
    std::chrono::seconds delaiTete{10};
    std::chrono::seconds delaiCorps{20};
    // Longer than the agent's 30-second heartbeat, or no connection would ever be reused.
    std::chrono::seconds gardeOuverte{45};
    std::size_t travailleurs = 4;
};

// The HTTP/1.1 listener (HTTPS with a certificate): one event-loop thread reads and writes
// every connection, and the endpoints run on a few worker threads so that a slow store never
// holds up accepting and reading. It frames and bounds requests (header size and count, body
// size per path and in all, deadlines, connections per address and in all) and hands whole
// requests to `traiter`. Every refusal, its own or an endpoint's, closes the connection.
class Ecoute {
public:
    using Traitement = std::function<ReponseHttp(const RequeteHttp&)>;
    // Given a request without its body (on a worker thread): a refusal, or nothing to go on.
    using Verification = std::function<std::optional<ReponseHttp>(const RequeteHttp&)>;

    // Throws ErreurFamille when the certificate or key cannot be read.
    Ecoute(ReglagesEcoute reglages, Traitement traiter, Verification verifier = {});
    Ecoute(const Ecoute&) = delete;
    Ecoute& operator=(const Ecoute&) = delete;
    ~Ecoute();

    // Binds (ErreurFamille when it cannot) and starts serving; returns the port bound.
    int demarrer();
    // Stops accepting, lets the requests being handled write their answer, closes every
    // other connection at once, then returns.
    void arreter();

private:
    struct Noyau;
    std::unique_ptr<Noyau> noyau;
};

} // namespace tavi::famille
