#pragma once

#include "platform/abonnement.h"

#include <chrono>
#include <memory>
#include <optional>

namespace tavi {

class BusSd;

// Whether some application holds the display awake (a video, a presentation), from the two
// places where applications say so: logind's inhibitors on the system bus (an inhibitor of
// "idle" in "block" mode) and, on GNOME, the session manager on the session bus
// (IsInhibited with the idle flag).
//
// Both are questions, not signals: an answer is the last one received, and asking starts a
// new question in the background when that one is older than `fraicheur`. So the first
// answers after a long silence may be a few seconds old; `rafraichir` asks ahead of need.
//
// Main thread only. The buses must outlive this object.
class Inhibitions {
public:
    static constexpr std::chrono::milliseconds fraicheur{5000};

    Inhibitions(BusSd& systeme, BusSd& session);
    ~Inhibitions();
    Inhibitions(const Inhibitions&) = delete;
    Inhibitions& operator=(const Inhibitions&) = delete;

    // True when either source says so, false when those that answer say not, absent when
    // neither answers.
    std::optional<bool> veilleEcranRetenue() const;
    // Each source on its own; absent when it does not answer (no logind, not GNOME).
    std::optional<bool> parLogind() const;
    std::optional<bool> parBureau() const;
    // Asks both again unless a question is already under way.
    void rafraichir() const;

    struct Etat;

private:
    std::shared_ptr<Etat> etat;
    std::unique_ptr<Abonnement> suiviSysteme, suiviSession;
};

} // namespace tavi
