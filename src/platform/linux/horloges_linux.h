#pragma once

#include "platform/horloges.h"

#include <cstdint>
#include <string_view>

namespace tavi {

// The system's clocks. The boot identity is read once, at construction: it cannot change
// while the process lives.
class HorlogesLinux : public Horloges {
public:
    HorlogesLinux();

    // CLOCK_BOOTTIME: CLOCK_MONOTONIC stops during suspend, and a server time derived from it
    // would fall behind after every sleep.
    std::int64_t monotoniqueMs() const override;
    // CLOCK_MONOTONIC, which stops during suspend.
    std::int64_t monotoniqueEveilleMs() const override;
    std::int64_t muraleMs() const override;

    // Folded from the kernel's random boot_id. The boot time in /proc/stat is recomputed from
    // the wall clock, so setting the clock would look like a reboot.
    std::int64_t demarrage() const override { return identite; }

private:
    std::int64_t identite;
};

// The boot identity carried by a boot_id text ("8-4-4-4-12" hexadecimal digits, a final
// newline allowed): its two 64-bit halves XORed and folded to 53 bits, so a double stores it
// exactly. -1 when the text is not such an identifier.
std::int64_t identiteDemarrage(std::string_view bootId);

} // namespace tavi
