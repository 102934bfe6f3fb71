#pragma once

#include "platform/notifications.h"

#include <vector>

namespace tavi::test {

// Notifications kept in a list; `serveur` false: a session without a server, which refuses.
struct FaussesNotifications : Notifications {
    struct Envoyee {
        std::string titre, texte, remplace;
    };
    void notifier(const std::string& titre, const std::string& texte, const std::string& remplace,
                  std::function<void(bool)> fait) override {
        if (serveur) envoyees.push_back({titre, texte, remplace});
        if (fait) fait(serveur);
    }
    bool serveur = true;
    std::vector<Envoyee> envoyees;
};

} // namespace tavi::test
