#pragma once

#include "platform/lecture.h"

#include <string>

namespace tavi {

// Reading and blanking a browser's front tab, by the browser's application identifier.
//
// Blocking: a browser may take up to 3 seconds to answer. Called on the browser reader's own
// serial worker only, never on the main thread, and never two calls at once.
class Navigation {
public:
    virtual ~Navigation() = default;

    // Whether this reader can read `identifiant` at all. A browser it cannot read is one the
    // agent cannot watch: while the site filter is on, it naps. Any thread: keeps no state.
    virtual bool sait(const std::string& identifiant) const {
        (void)identifiant;
        return true;
    }
    virtual Lecture lire(const std::string& identifiant) = 0;
    // Replaces the front tab's address by "about:blank"; failures are ignored.
    virtual void vider(const std::string& identifiant) = 0;
};

} // namespace tavi
