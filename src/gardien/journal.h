#pragma once

#include <string>

namespace tavi {

// One line on the service's standard error, which the system journal keeps. Never a token:
// the lines say who asked what, and what came of it.
void journal(const std::string& ligne);

} // namespace tavi
