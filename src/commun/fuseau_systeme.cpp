#include "commun/fuseau_systeme.h"

#include <cstdlib>
#include <ctime>

namespace tavi {

void suivreFuseauSysteme() {
    unsetenv("TZ");
    unsetenv("TZDIR");
    tzset();
}

} // namespace tavi
