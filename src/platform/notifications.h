#pragma once

#include <functional>
#include <string>

namespace tavi {

// The desktop's notifications: a short message shown for a few seconds beside the session's
// windows, which is how a Linux desktop tells its user something brief.
//
// Main thread only; every callback comes back on the main thread.
class Notifications {
public:
    virtual ~Notifications() = default;

    // Shows `texte` under the title `titre`; a later one given the same `remplace` takes the
    // place of the earlier one still shown (an empty `remplace` replaces nothing). `fait` gets
    // true once the desktop took it, false when the session has no server for them or it
    // refused: the caller then says it another way.
    virtual void notifier(const std::string& titre, const std::string& texte,
                          const std::string& remplace, std::function<void(bool)> fait) = 0;
};

} // namespace tavi
