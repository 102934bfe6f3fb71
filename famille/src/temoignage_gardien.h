#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tavi::famille {

// A time the guardian saw no agent in the session: from `debutMs` for `dureeMs`, ended by a new
// agent ("relance"), the same one coming back ("retour", after a stop), the session's end
// ("session_finie") or the guardian finding the agent stopped and continuing it ("arret").
struct AbsenceAgent {
    std::int64_t debutMs = 0;
    std::int64_t dureeMs = 0;
    std::string fin;
    bool operator==(const AbsenceAgent&) const = default;
};

// A stretch while rest was due where the agent's veil was missing, and what the guardian saw
// instead: "x_injoignable", "aucune_fenetre", "non_visible", "non_couvert", "recouvert",
// "sans_agent", "wayland" or "console".
struct VoileAbsent {
    std::int64_t debutMs = 0;
    std::int64_t dureeMs = 0;
    std::string raison;
    bool operator==(const VoileAbsent&) const = default;
};

// The member "gardien" of a heartbeat: what the root service on the child's computer saw of
// the sender and of the agent since its previous heartbeat. The child's account can neither
// forge nor remove it: the service writes it over whatever the agent sent.
struct TemoignageGardien {
    bool agent = false; // the sender is the copy the guardian started
    std::int64_t pid = 0;
    std::optional<std::string> executable;
    std::optional<std::int64_t> lanceMs;
    std::optional<std::string> demarrage; // the kernel's boot identity
    std::vector<AbsenceAgent> absences;
    std::vector<std::int64_t> relances;
    std::int64_t absencesPerdues = 0; // older absences the guardian only counted
    // The guardian's own count of the account's use on `jour`, the computer's local day on the
    // guardian's clock; both or neither.
    std::optional<double> utiliseJourMin;
    std::optional<std::string> jour;
    std::optional<std::string> controle;   // "complet" (X11) or "partiel" (Wayland, no X)
    std::vector<std::int64_t> verrous;     // sessions the guardian locked
    std::vector<std::int64_t> finsSession; // sessions the guardian ended
    std::vector<VoileAbsent> voileAbsent;
    bool operator==(const TemoignageGardien&) const = default;
};

// Checks the member in full against the server's clock `maintenantMs`, refusing (ErreurRequete
// 400, naming the member) at the first fault.
TemoignageGardien lireTemoignageGardien(const nlohmann::json& membre, std::int64_t maintenantMs);

} // namespace tavi::famille
