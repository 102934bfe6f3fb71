#pragma once

#include "server/transport.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace tavi {

// HTTP over libcurl with every bound set: libcurl's defaults have no overall time-out and wait
// 300 s for a connection.
class TransportCurl : public Transport {
public:
    struct Bornes {
        // A connection (and its TLS handshake) that takes longer is given up.
        std::chrono::milliseconds connexion{20'000};
        // Longer than this without a byte either way ends the exchange.
        std::chrono::milliseconds inactivite{20'000};
        // No exchange lasts longer, however slowly the answer trickles.
        std::chrono::milliseconds total{60'000};
        // A larger answer is a transport failure, not an allocation.
        std::size_t tailleMax = 8u << 20;
    };

    TransportCurl();
    explicit TransportCurl(Bornes bornes);
    // Every exchange over the Unix socket `prise` (the guardian's relay), whatever host the
    // address names: no proxy, plain HTTP only, nothing ever leaves for the network.
    TransportCurl(Bornes bornes, const std::filesystem::path& prise);
    ~TransportCurl() override;
    TransportCurl(const TransportCurl&) = delete;
    TransportCurl& operator=(const TransportCurl&) = delete;

    Attendu<ReponseHttp, ErreurTransport> echanger(const RequeteHttp& requete) override;

private:
    struct Partage;
    Bornes bornes_;
    std::optional<std::string> prise_;
    std::unique_ptr<Partage> partage_;
};

} // namespace tavi
