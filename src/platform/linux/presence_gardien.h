#pragma once

#include "platform/boucle.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace tavi {

// This copy's presence on the guardian's relay: one connection held open, on which the guardian
// first says whether this copy is the one it started ("agent") or any other ("copie"), then
// takes one '\n' every `signeDeVieMs` as the sign that the copy still runs. A connection that is
// refused, lost, or left unanswered for three rounds is made again on the next round, every 2 s.
//
// Main thread only, and it never waits there: the socket is non-blocking and the loop watches
// it. While connected it costs one write every 2 s. `quandRole` is called with each answer, once
// per connection; `boucle` must outlive the object.
class PresenceGardien {
public:
    enum class Role { agent, copie };

    PresenceGardien(Boucle& boucle, const std::filesystem::path& relais,
                    std::function<void(Role)> quandRole);
    ~PresenceGardien();
    PresenceGardien(const PresenceGardien&) = delete;
    PresenceGardien& operator=(const PresenceGardien&) = delete;

    // The guardian's answer on the connection held now; absent while there is none.
    std::optional<Role> role() const;

private:
    struct Etat;
    std::shared_ptr<Etat> etat_;
    std::unique_ptr<Minuterie> tours_;
};

} // namespace tavi
