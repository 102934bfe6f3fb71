#pragma once

#include "platform/coffre.h"

#include <map>
#include <mutex>
#include <utility>

namespace tavi {

// Secrets kept in this process only: the self-test pairs with a real server without touching
// the agent's own token.
class CoffreMemoire : public Coffre {
public:
    std::optional<std::string> lire(const std::string& service,
                                    const std::string& compte) const override {
        std::lock_guard verrou(verrou_);
        auto it = secrets_.find({service, compte});
        if (it == secrets_.end()) return std::nullopt;
        return it->second;
    }
    void ecrire(const std::string& service, const std::string& compte,
                const std::string& secret) override {
        std::lock_guard verrou(verrou_);
        secrets_[{service, compte}] = secret;
    }
    void supprimer(const std::string& service, const std::string& compte) override {
        std::lock_guard verrou(verrou_);
        secrets_.erase({service, compte});
    }

private:
    mutable std::mutex verrou_;
    std::map<std::pair<std::string, std::string>, std::string> secrets_;
};

} // namespace tavi
