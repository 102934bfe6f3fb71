#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tavi {

// The time the child spends on each web domain, per clock hour (UTC), gathered in memory for
// the heartbeat. Only domain names, never pages. Nothing reaches the disk: what was neither
// sent nor taken back is lost when the agent stops.
//
// Main thread only.
class Historique {
public:
    struct Entree {
        std::int64_t premier = 0; // first observation in the hour, ms since the epoch
        std::int64_t dernier = 0; // last one
        double secondes = 0;      // never above 3600
    };

    // `dt` seconds spent on `domaine` at `maintenant` (server time, ms).
    void noter(const std::string& domaine, double dt, std::int64_t maintenant);
    // The batch to send, an array of {"d","p","f","s"}; absent when nothing was noted since
    // the last one. The batch is kept until the next call, for `echec`.
    std::optional<nlohmann::json> prendre();
    // The batch taken last was not delivered: it goes back, merged with what came since.
    void echec();
    // The batch taken last was delivered: it is dropped.
    void acquitter() { enCours.clear(); }
    // Forgets everything, collected and in flight: a history nobody asked for is not kept.
    void vider() {
        lot.clear();
        enCours.clear();
    }

private:
    void fusionner(const std::string& cle, const Entree& entree);

    std::map<std::string, Entree> lot;
    std::map<std::string, Entree> enCours;
};

} // namespace tavi
