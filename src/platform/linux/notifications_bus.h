#pragma once

#include "platform/linux/bus_sd.h"
#include "platform/notifications.h"

#include <cstdint>
#include <map>
#include <memory>

namespace tavi {

// The session's notification server (org.freedesktop.Notifications) over the session bus.
// The texts go as plain text: a server reads the body as markup, and a message may come from
// the family server.
//
// Main thread only. `bus` must outlive this object.
class NotificationsBus : public Notifications {
public:
    explicit NotificationsBus(BusSd& bus);
    ~NotificationsBus() override;

    void notifier(const std::string& titre, const std::string& texte, const std::string& remplace,
                  std::function<void(bool)> fait) override;

private:
    BusSd& bus_;
    // The server's number of the last notification of each `remplace`.
    std::map<std::string, std::uint32_t> numeros_;
    std::shared_ptr<NotificationsBus*> vivant_;
};

} // namespace tavi
