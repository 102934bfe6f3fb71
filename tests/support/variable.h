#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace tavi::test {

// Sets (or, with nullptr, removes) an environment variable for one scope, then puts back what
// was there.
class Variable {
public:
    Variable(const char* nom, const char* valeur) : nom_(nom) {
        if (const char* avant = std::getenv(nom)) avant_ = avant;
        valeur ? setenv(nom, valeur, 1) : unsetenv(nom);
    }
    ~Variable() { avant_ ? setenv(nom_.c_str(), avant_->c_str(), 1) : unsetenv(nom_.c_str()); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    std::string nom_;
    std::optional<std::string> avant_;
};

} // namespace tavi::test
