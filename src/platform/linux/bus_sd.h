#pragma once

#include "platform/abonnement.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

struct sd_bus_message;

namespace tavi {

class Boucle;

enum class TypeBus { systeme, session };

// One D-Bus connection (sd-bus) driven by the main loop: its descriptor is watched through
// `Boucle::surveiller` and its deadlines through `Boucle::plusTard`, so nothing here ever
// waits on a daemon. The addresses come from DBUS_SYSTEM_BUS_ADDRESS and
// DBUS_SESSION_BUS_ADDRESS, or the usual defaults.
//
// A bus that is missing or goes away is tried again, after 2 s and then twice as long each
// time up to a minute; every user is told when a connection comes and goes, and must then
// make its calls and subscriptions again.
//
// Main thread only. The object must outlive the objects that use it.
class BusSd {
public:
    // Filled in by `remplir` before the call goes: the method's arguments
    // (sd_bus_message_append). A negative result drops the call.
    using Remplir = std::function<int(sd_bus_message*)>;
    // The reply, or null when there is none: an error reply, no answer within `delaiAppel`, no
    // connection. Read it with type checks: sd-bus checks the signature, not the meaning.
    using Reponse = std::function<void(sd_bus_message*)>;
    using Signal = std::function<void(sd_bus_message*)>;

    // A daemon that takes longer than this is as good as absent: the answers it would give
    // are about an instant already gone.
    static constexpr std::chrono::milliseconds delaiAppel{2000};

    BusSd(Boucle& boucle, TypeBus type);
    ~BusSd();
    BusSd(const BusSd&) = delete;
    BusSd& operator=(const BusSd&) = delete;

    bool connecte() const;
    // The loop it runs on, for users that must step out of sd-bus's dispatching.
    Boucle& boucle() const;

    // Calls `quandConnecte` each time a connection is ready to take calls (at once, from
    // inside this call, when one is) and `quandPerdu` each time it goes, until the handle is
    // destroyed. Both run outside sd-bus's dispatching: they may call and subscribe.
    [[nodiscard]] std::unique_ptr<Abonnement> suivre(std::function<void()> quandConnecte,
                                                     std::function<void()> quandPerdu);

    // Calls a method without starting the service when it is not running. `reponse` runs
    // once, later, on the main thread, unless this object or the connection goes first (a
    // connection lost answers null to the calls in flight).
    void appeler(const char* destination, const char* chemin, const char* interface,
                 const char* methode, const Remplir& remplir, Reponse reponse);

    // Sends a signal to `destination` (a bus name, whose owner alone receives it; null for
    // every listener), then calls `parti` once, on the main thread, when the message has left
    // this process (written to the daemon's socket) or cannot: no connection, the connection
    // lost, still unwritten after `delaiAppel`. Nothing waits: the bytes go out as the loop
    // turns. `parti` may end the process; it may never run if this object goes first.
    void emettre(const char* destination, const char* chemin, const char* interface,
                 const char* membre, const Remplir& remplir, std::function<void()> parti);

    // This connection's unique name (":1.42") once the daemon has welcomed it; absent before
    // that and without a connection. The reply to a call comes after the welcome, so a
    // `reponse` may count on it.
    std::optional<std::string> nomUnique() const;

    // Receives the signals that match (null members match anything) on the current
    // connection, until the handle is destroyed; a new connection needs a new subscription.
    // Null when there is no connection.
    [[nodiscard]] std::unique_ptr<Abonnement> ecouter(const char* emetteur, const char* chemin,
                                                      const char* interface, const char* membre,
                                                      Signal quand);

private:
    struct Etat;
    std::shared_ptr<Etat> etat;
};

} // namespace tavi
