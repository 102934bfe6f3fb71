#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tavi {

class Supervision;
class Transport;

struct OptionsService {
    std::string relais; // the socket's path; its folder is made 0755
    std::string etat;   // the registry's folder
    std::string conf;   // the conffile
};

// The guardian's bounds on its relay: the child's account may open connections and send bytes
// as it likes, the service stays within these.
struct BornesService {
    std::int64_t requeteMs = 10'000;   // the whole request, from the connection
    std::int64_t ecritureMs = 10'000;  // the answer, to a peer that does not read
    std::size_t connexionsParUid = 16; // presence connections count too
    std::size_t connexionsMax = 256;
    double debitParMinute = 120; // requests per uid (token bucket)
    double rafale = 30;
    std::size_t ouvriers = 4;    // exchanges with the server at once
    std::size_t attenteMax = 64; // exchanges waiting for a worker
};

// Blocks the signals the service's loop reads (SIGCHLD, SIGTERM, SIGINT) in the calling thread,
// and so in every thread it starts from then on: the supervision's own threads must be started
// after this, or a stop could be delivered to one of them and end the process unsaved.
void bloquerSignauxDuService();

// Runs the service until SIGTERM or SIGINT: the relay socket, the supervision's tick every
// second and at each SIGCHLD. Returns the exit status (0 on a signal, 1 when the socket could
// not be made). Single-threaded but for the exchanges with the server.
int servir(const OptionsService& options, Supervision& supervision, Transport& transport,
           const BornesService& bornes = {});

} // namespace tavi
