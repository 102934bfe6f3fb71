#pragma once

#include "http.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace tavi::famille {

struct ReglagesEcoute {
    std::string hote = "127.0.0.1";
    int port = 8080; // 0: any free port
    std::optional<std::string> certificat;
    std::optional<std::string> cle;
    // The paths served, all POST: any other path gets a 404, another method a 405.
    std::set<std::string> chemins;
    // A family behind one NAT has a few computers with one connection each; a reverse proxy
    // in front needs more, since every client then has its address.
    std::size_t connexionsParAdresse = 32;
    std::size_t connexionsTotal = 4096;
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
// size, deadlines, connections per address) and hands whole requests to `traiter`.
class Ecoute {
public:
    using Traitement = std::function<ReponseHttp(const RequeteHttp&)>;

    // Throws ErreurFamille when the certificate or key cannot be read.
    Ecoute(ReglagesEcoute reglages, Traitement traiter);
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
