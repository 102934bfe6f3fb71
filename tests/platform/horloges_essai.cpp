// Prints the agent's monotonic clock in milliseconds, so that a test can read it from inside a
// time namespace whose clocks it has shifted.
#include "platform/linux/horloges_linux.h"

#include <iostream>

int main() {
    std::cout << tavi::HorlogesLinux().monotoniqueMs() << '\n';
    return 0;
}
