#pragma once

#include <functional>

namespace tavi {

// The other copies of the agent run by this user: exactly one should be running, the login
// agent's, and a copy started by hand steps aside for it. One copy holds the place that the
// others find; a copy may ask the holder to show itself.
//
// Anything of this user's may take the place or send the message: a copy that finds the place
// taken only steps aside when the login agent is registered (so a copy of its own runs), and
// a message only ever opens a window.
//
// Main thread only; every answer comes on the main thread.
class Copies {
public:
    virtual ~Copies() = default;

    // Whether another copy (another process, or another object of this type) holds the place.
    virtual void autreInstance(std::function<void(bool)> reponse) = 0;
    // Takes the place, and calls `quandMontrer` each time another copy asks this one to show
    // itself. The login agent's copy (`agent`) takes the place from a copy started by hand,
    // which keeps it only while no agent copy wants it.
    virtual void tenir(bool agent, std::function<void()> quandMontrer) = 0;
    // Asks the copy holding the place to show itself, then calls `fini` once the message has
    // left this process (the caller may end at once), sent or not.
    virtual void montrer(std::function<void()> fini) = 0;
};

} // namespace tavi
