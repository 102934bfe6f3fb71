#pragma once

#include "platform/abonnement.h"

#include <chrono>
#include <memory>
#include <optional>

namespace tavi {

class BusSd;

// The time since the last input as GNOME's compositor counts it (Mutter's idle monitor on the
// session bus): on Wayland, the only place that sees every keyboard and pointer event of the
// session.
//
// Asked in the background, at most once per `fraicheur` and only while someone asks; the
// answer is the last reply plus the time gone since it came. Between two replies that is
// exact as long as no input came, and an input only shortens the idle time, which the next
// reply shows within a second. Answering the bare last reply instead would keep a compositor
// that stopped answering looking busy for as long as the call waits. Absent when nobody owns
// the name (not GNOME) or the last question failed.
//
// Main thread only. The bus must outlive this object.
class MoniteurGnome {
public:
    static constexpr std::chrono::milliseconds fraicheur{1000};

    explicit MoniteurGnome(BusSd& session);
    ~MoniteurGnome();
    MoniteurGnome(const MoniteurGnome&) = delete;
    MoniteurGnome& operator=(const MoniteurGnome&) = delete;

    std::optional<double> secondesInactivite() const;

    struct Etat;

private:
    std::shared_ptr<Etat> etat;
    std::unique_ptr<Abonnement> suivi;
};

} // namespace tavi
