#pragma once

#include "commun/attendu.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavi {

struct RequeteHttp {
    std::string methode;
    std::string url;
    std::vector<std::pair<std::string, std::string>> entetes;
    std::optional<std::string> corps;
};

struct ReponseHttp {
    long statut = 0;
    std::map<std::string, std::string> entetes; // names in lower case
    std::string corps;
};

// The exchange did not produce an HTTP answer: no network, a time-out, a TLS failure, an
// answer too large. `code` is the transport's own (libcurl's), `message` says it plainly.
struct ErreurTransport {
    int code = 0;
    std::string message;
};

// One HTTP exchange. Blocking: it is run on the background pool, never on the main thread.
// Safe to call from several threads at once.
class Transport {
public:
    virtual ~Transport() = default;
    virtual Attendu<ReponseHttp, ErreurTransport> echanger(const RequeteHttp& requete) = 0;
};

} // namespace tavi
