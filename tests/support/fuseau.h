#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace tavi::test {

// Sets the process's time zone for one test and puts the previous one back.
class FuseauFixe {
public:
    explicit FuseauFixe(const char* fuseau) {
        if (const char* avant = std::getenv("TZ")) avant_ = avant;
        setenv("TZ", fuseau, 1);
        tzset();
    }
    ~FuseauFixe() {
        if (avant_)
            setenv("TZ", avant_->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    FuseauFixe(const FuseauFixe&) = delete;
    FuseauFixe& operator=(const FuseauFixe&) = delete;

private:
    std::optional<std::string> avant_;
};

} // namespace tavi::test
