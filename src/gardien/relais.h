#pragma once

#include "gardien/lecteur_requete.h"
#include "gardien/registre.h"
#include "server/transport.h"

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <variant>

namespace tavi {

class Supervision;

// Who is at the other end of a relay connection, as the kernel says (SO_PEERCRED).
struct Pair {
    uid_t uid = 0;
    pid_t pid = 0;
};

// What the relay answers the agent: never a header of the server's but its type.
struct ReponseRelais {
    int statut = 200;
    std::string typeContenu = "application/json";
    std::string corps;
};

// A presence connection: the answer says whether the peer is the guardian's agent.
struct PresenceDemandee {};

// A request that goes to the family server. Prepared on the main thread (the supervision's
// member taken), exchanged on a worker (blocking), concluded on the main thread again.
struct Envoi {
    Pair pair;
    RequeteHttp requete;
    bool appariement = false;
    std::optional<nlohmann::json> membre; // the heartbeat's "gardien", given back on failure
    // Around the exchange, on the clock that counts sleep: the answer dates the server's time.
    std::int64_t envoiMs = 0;
    std::int64_t recuMs = 0;
};

// The relay's decisions: the agent's requests are hostile input, the token of the peer's uid
// is added here and never goes back.
class Relais {
public:
    struct Ports {
        Registre& registre;
        Supervision& supervision;
        std::string conf; // the conffile, read at each request: `serveur URL` applies at once
    };
    explicit Relais(Ports ports) : p(ports) {}

    using Decision = std::variant<ReponseRelais, PresenceDemandee, Envoi>;
    // Main thread.
    Decision decider(const RequeteRecue& requete, Pair pair);
    // Any thread: the blocking exchange.
    static Attendu<ReponseHttp, ErreurTransport> echanger(Transport& transport, const Envoi& envoi);
    // Main thread: records what the answer says (pairing, renewed token, refusals) and gives
    // the answer for the agent.
    ReponseRelais conclure(const Envoi& envoi,
                           const Attendu<ReponseHttp, ErreurTransport>& resultat);

    static ReponseRelais erreur(int statut, const std::string& detail);

private:
    Decision etat(Pair pair);
    ReponseRelais conclureAppariement(const Envoi& envoi, const ReponseHttp& reponse);

    Ports p;
    std::map<uid_t, int> refusSuivis_; // 401s in a row from the server, per account
    std::map<uid_t, std::int64_t> derniersBattementsMs_; // epoch ms, heartbeats the server took
};

} // namespace tavi
