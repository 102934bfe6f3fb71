#include "platform/linux/moniteur_gnome.h"

#include "platform/linux/bus_sd.h"

#include <cstdint>
#include <systemd/sd-bus.h>

namespace tavi {

namespace {

using Horloge = std::chrono::steady_clock;

// A year of idleness is no reading a compositor would give.
constexpr std::uint64_t inactiviteMaxMs = 366ull * 24 * 3600 * 1000;

} // namespace

struct MoniteurGnome::Etat : std::enable_shared_from_this<MoniteurGnome::Etat> {
    BusSd& bus;
    std::optional<std::uint64_t> derniereMs;
    Horloge::time_point recue;
    std::optional<Horloge::time_point> posee;
    bool enVol = false;
    int generation = 0;

    explicit Etat(BusSd& b) : bus(b) {}

    void oublier() {
        derniereMs.reset();
        posee.reset();
        enVol = false;
        ++generation;
    }

    void rafraichir() {
        if (enVol || (posee && Horloge::now() - *posee < fraicheur)) return;
        enVol = true;
        posee = Horloge::now();
        bus.appeler("org.gnome.Mutter.IdleMonitor", "/org/gnome/Mutter/IdleMonitor/Core",
                    "org.gnome.Mutter.IdleMonitor", "GetIdletime", {},
                    [faible = weak_from_this(), g = generation](sd_bus_message* m) {
                        auto e = faible.lock();
                        if (!e || e->generation != g) return;
                        e->enVol = false;
                        std::uint64_t ms = 0;
                        if (m && sd_bus_message_read(m, "t", &ms) > 0 && ms <= inactiviteMaxMs) {
                            e->derniereMs = ms;
                            e->recue = Horloge::now();
                        } else {
                            e->derniereMs.reset();
                        }
                    });
    }
};

MoniteurGnome::MoniteurGnome(BusSd& session) : etat(std::make_shared<Etat>(session)) {
    suivi = session.suivre(
        [faible = std::weak_ptr<Etat>(etat)] {
            if (auto e = faible.lock()) {
                e->oublier();
                e->rafraichir();
            }
        },
        [faible = std::weak_ptr<Etat>(etat)] {
            if (auto e = faible.lock()) e->oublier();
        });
}

MoniteurGnome::~MoniteurGnome() = default;

std::optional<double> MoniteurGnome::secondesInactivite() const {
    etat->rafraichir();
    if (!etat->derniereMs) return std::nullopt;
    const auto depuis = std::chrono::duration<double>(Horloge::now() - etat->recue).count();
    return static_cast<double>(*etat->derniereMs) / 1000.0 + depuis;
}

} // namespace tavi
