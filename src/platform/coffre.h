#pragma once

#include <optional>
#include <string>

namespace tavi {

// The secret store: one secret by (service, account). Nothing here ever throws: a read that
// fails for any reason (missing, locked, denied) is absent, a write or a delete that fails is
// given up.
//
// Blocking: each call is a D-Bus round trip to the keyring, which a hung daemon can hold for
// 25 s. Call it from the background pool (Boucle::enArrierePlan), never on the main thread;
// implementations serialise their calls, so several threads may use one at once.
class Coffre {
public:
    virtual ~Coffre() = default;

    virtual std::optional<std::string> lire(const std::string& service,
                                            const std::string& compte) const = 0;
    // Updates the secret if it exists, adds it otherwise.
    virtual void ecrire(const std::string& service, const std::string& compte,
                        const std::string& secret) = 0;
    virtual void supprimer(const std::string& service, const std::string& compte) = 0;
};

} // namespace tavi
