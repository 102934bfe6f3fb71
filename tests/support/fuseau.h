#pragma once

#include "support/variable.h"

#include <ctime>

namespace tavi::test {

// Sets the process's time zone for one test and puts the previous one back.
class FuseauFixe {
public:
    explicit FuseauFixe(const char* fuseau) : tz_("TZ", fuseau) { tzset(); }

private:
    // Members go in reverse order: TZ is put back first, then read again.
    struct Relire {
        ~Relire() { tzset(); }
    } relire_;
    Variable tz_;
};

} // namespace tavi::test
