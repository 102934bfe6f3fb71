#pragma once

#include "platform/abonnement.h"
#include "platform/copies.h"

#include <functional>
#include <memory>

namespace tavi {

class BusSd;

// The agent's copies on the session bus: the place is the well-known name "com.tavi.home",
// and the request to show itself a signal "Montrer" (path "/com/tavi/home", interface
// "com.tavi.home", no arguments) addressed to that name, so that only its owner receives it.
//
// The agent's copy asks for the name with replacement and lets nobody take it; a copy
// started by hand lets itself be replaced and does not wait in the daemon's queue. Both ask
// again after each reconnection. A second agent copy waits in the queue behind the first.
//
// Main thread only. The bus must outlive this object.
class CopiesBus : public Copies {
public:
    explicit CopiesBus(BusSd& bus);
    ~CopiesBus() override;
    CopiesBus(const CopiesBus&) = delete;
    CopiesBus& operator=(const CopiesBus&) = delete;

    void autreInstance(std::function<void(bool)> reponse) override;
    void tenir(bool agent, std::function<void()> quandMontrer) override;
    void montrer(std::function<void()> fini) override;

private:
    void demander();

    BusSd& bus;
    bool agent = false;
    std::shared_ptr<std::function<void()>> quandMontrer;
    std::unique_ptr<Abonnement> suivi;
    std::unique_ptr<Abonnement> ecoute;
    std::shared_ptr<int> vivant = std::make_shared<int>(0);
};

} // namespace tavi
