#include "server/lien_serveur.h"

#include "server/relais.h"
#include "server/transport_curl.h"

namespace tavi {

LienServeur LienServeur::deCeProcessus() {
    auto relais = relaisPresent();
    if (!relais) return direct();
    return {std::make_shared<TransportCurl>(TransportCurl::Bornes{}, *relais),
            std::string(baseRelais), std::move(relais)};
}

LienServeur LienServeur::direct() {
    return {std::make_shared<TransportCurl>(), std::nullopt, std::nullopt};
}

} // namespace tavi
