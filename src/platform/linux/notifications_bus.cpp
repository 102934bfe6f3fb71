#include "platform/linux/notifications_bus.h"

#include <systemd/sd-bus.h>

namespace tavi {

namespace {

constexpr const char* service = "org.freedesktop.Notifications";
// How long a server keeps a notification up: its own default.
constexpr std::int32_t delaiServeur = -1;
// Normal: a critical notification would stay until dismissed.
constexpr std::uint8_t urgenceNormale = 1;

// The body is markup to most servers: a message from the family server is shown as written,
// never as a tag or an entity.
std::string enTexte(const std::string& brut) {
    std::string resultat;
    resultat.reserve(brut.size());
    for (const char c : brut) {
        if (c == '&')
            resultat += "&amp;";
        else if (c == '<')
            resultat += "&lt;";
        else if (c == '>')
            resultat += "&gt;";
        else
            resultat += c;
    }
    return resultat;
}

} // namespace

NotificationsBus::NotificationsBus(BusSd& bus)
    : bus_(bus), vivant_(std::make_shared<NotificationsBus*>(this)) {}

NotificationsBus::~NotificationsBus() = default;

void NotificationsBus::notifier(const std::string& titre, const std::string& texte,
                                const std::string& remplace, std::function<void(bool)> fait) {
    const auto trouve = remplace.empty() ? numeros_.end() : numeros_.find(remplace);
    const std::uint32_t ancien = trouve == numeros_.end() ? 0 : trouve->second;
    const std::string corps = enTexte(texte);
    bus_.appeler(
        service, "/org/freedesktop/Notifications", service, "Notify",
        [&](sd_bus_message* m) {
            // Text that is not UTF-8 is refused here, and the call with it.
            return sd_bus_message_append(m, "susssasa{sv}i", "Tavi Home", ancien, "com.tavi.home",
                                         titre.c_str(), corps.c_str(), 0, 2, "desktop-entry", "s",
                                         "com.tavi.home", "urgency", "y", urgenceNormale,
                                         delaiServeur);
        },
        [faible = std::weak_ptr<NotificationsBus*>(vivant_), remplace,
         fait = std::move(fait)](sd_bus_message* m) {
            std::uint32_t numero = 0;
            const bool pris = m && sd_bus_message_read(m, "u", &numero) > 0;
            if (auto vivant = faible.lock(); vivant && pris && !remplace.empty())
                (*vivant)->numeros_[remplace] = numero;
            if (fait) fait(pris);
        });
}

} // namespace tavi
