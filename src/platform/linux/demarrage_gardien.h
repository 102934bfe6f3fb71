#pragma once

#include "platform/demarrage.h"

#include <memory>
#include <mutex>

namespace tavi {

// The login agent under a guardian: the guardian is it. A system service, it starts the agent
// in every session of a paired account, takes the account in when the pairing goes through its
// relay and lets it go when the server refuses it; so the account has nothing to register or
// remove, and the agent counts as registered while the guardian is installed.
//
// What the agent wrote in the account itself before (its user unit or autostart entry, `ancien`
// removes them) would start a second copy with every session, competing with the guardian's:
// it goes once, at the first call, on the background pool like every call of the port.
class DemarrageGardien : public Demarrage {
public:
    explicit DemarrageGardien(std::unique_ptr<Demarrage> ancien);

    bool actif() const override;
    std::optional<std::string> enregistrer() override;
    void desenregistrer() override;

private:
    void nettoyer() const;

    std::unique_ptr<Demarrage> ancien_;
    mutable std::once_flag nettoye_;
};

} // namespace tavi
