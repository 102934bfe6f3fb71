#pragma once

#include "platform/notifications.h"

#include <string>
#include <vector>

namespace tavi::test {

// The desktop's notifications, kept in a list; `serveur` false stands for a session without a
// notification server, which refuses each one.
class FaussesNotifications : public Notifications {
public:
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
