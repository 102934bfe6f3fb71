#pragma once

namespace tavi {

// A subscription to a source of events (a descriptor, a session signal, the front application
// changing): the callback runs until this handle is destroyed, which must happen on the main
// thread, possibly inside the callback itself.
class Abonnement {
public:
    virtual ~Abonnement() = default;
};

} // namespace tavi
