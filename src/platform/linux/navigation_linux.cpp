#include "platform/linux/navigation_linux.h"

namespace tavi {

Lecture NavigationLinux::lire(const std::string&) {
    return Lecture::illisible();
}

void NavigationLinux::vider(const std::string&) {}

} // namespace tavi
