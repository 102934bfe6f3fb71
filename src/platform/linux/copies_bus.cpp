#include "platform/linux/copies_bus.h"

#include "platform/boucle.h"
#include "platform/linux/bus_sd.h"

#include <cstdint>
#include <string>
#include <systemd/sd-bus.h>
#include <utility>

namespace tavi {

namespace {

constexpr const char* nom = "com.tavi.home";
constexpr const char* chemin = "/com/tavi/home";
constexpr const char* membre = "Montrer";

constexpr const char* pilote = "org.freedesktop.DBus";
constexpr const char* cheminPilote = "/org/freedesktop/DBus";

// RequestName's flags as the daemon reads them; sd-bus's SD_BUS_NAME_* are other numbers
// for its own sd_bus_request_name.
constexpr std::uint32_t permettreRemplacement = 0x1;
constexpr std::uint32_t remplacer = 0x2;
constexpr std::uint32_t sansFile = 0x4;

} // namespace

CopiesBus::CopiesBus(BusSd& leBus) : bus(leBus) {}

CopiesBus::~CopiesBus() = default;

void CopiesBus::autreInstance(std::function<void(bool)> reponse) {
    bus.appeler(
        pilote, cheminPilote, pilote, "GetNameOwner",
        [](sd_bus_message* m) { return sd_bus_message_append(m, "s", nom); },
        [this, faible = std::weak_ptr<int>(vivant),
         reponse = std::move(reponse)](sd_bus_message* m) {
            if (faible.expired()) return;
            // No owner is an error reply, as is a daemon that does not answer: both null.
            const char* proprietaire = nullptr;
            if (!m || sd_bus_message_read(m, "s", &proprietaire) < 0 || !proprietaire)
                return reponse(false);
            reponse(bus.nomUnique() != std::string(proprietaire));
        });
}

void CopiesBus::tenir(bool estAgent, std::function<void()> quand) {
    agent = estAgent;
    quandMontrer = std::make_shared<std::function<void()>>(std::move(quand));
    // A new connection has lost the name and the subscription with the old one.
    suivi = bus.suivre([this] { demander(); }, [this] { ecoute.reset(); });
}

void CopiesBus::demander() {
    // Listening first: a request that comes right after the name is ours must find it.
    ecoute =
        bus.ecouter(nullptr, chemin, nom, membre,
                    [&boucle = bus.boucle(),
                     quand = std::weak_ptr<std::function<void()>>(quandMontrer)](sd_bus_message*) {
                        // Out of sd-bus's dispatching: the handler may end the process
                        // or destroy this object.
                        boucle.poster([quand] {
                            if (auto q = quand.lock(); q && *q) (*q)();
                        });
                    });
    const std::uint32_t drapeaux = agent ? remplacer : permettreRemplacement | sansFile;
    // The answer tells nothing a copy needs: whoever holds the name is what autreInstance asks.
    bus.appeler(
        pilote, cheminPilote, pilote, "RequestName",
        [drapeaux](sd_bus_message* m) { return sd_bus_message_append(m, "su", nom, drapeaux); },
        [](sd_bus_message*) {});
}

void CopiesBus::montrer(std::function<void()> fini) {
    bus.emettre(nom, chemin, nom, membre, nullptr, std::move(fini));
}

} // namespace tavi
