#pragma once

#include "platform/demarrage.h"

#include <atomic>

namespace tavi::test {

// A login agent in memory, from any thread: counts registrations and removals.
class FauxDemarrage : public Demarrage {
public:
    std::atomic<bool> enregistre{false};
    std::atomic<int> enregistrements{0};
    std::atomic<int> desenregistrements{0};

    bool actif() const override { return enregistre; }
    std::optional<std::string> enregistrer() override {
        ++enregistrements;
        enregistre = true;
        return std::nullopt;
    }
    void desenregistrer() override {
        ++desenregistrements;
        enregistre = false;
    }
};

} // namespace tavi::test
