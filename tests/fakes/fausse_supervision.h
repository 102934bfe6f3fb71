#pragma once

#include "gardien/supervision.h"

#include <mutex>
#include <vector>

namespace tavi::test {

// A supervision whose agent is a pid the test names; it records the members it gave and got
// back. Called from the service's thread, read from the test's.
class FausseSupervision : public Supervision {
public:
    mutable std::mutex verrou;
    bool attendu = false;
    pid_t agent = -1;
    int pris = 0;
    std::vector<nlohmann::json> rendus;
    std::vector<std::string> consignes;

    void tic(const std::set<uid_t>&) override {}
    bool estAgent(uid_t, pid_t pid) const override {
        std::lock_guard v(verrou);
        return pid == agent;
    }
    bool agentAttendu(uid_t) const override {
        std::lock_guard v(verrou);
        return attendu;
    }
    void presenceOuverte(uid_t, pid_t) override {}
    void presenceFermee(uid_t, pid_t) override {}
    void signeDeVie(uid_t, pid_t) override {}
    nlohmann::json prendre(uid_t, pid_t pid) override {
        std::lock_guard v(verrou);
        return {{"agent", pid == agent}, {"pid", pid}, {"n", ++pris}};
    }
    void rendre(uid_t, const nlohmann::json& membre) override {
        std::lock_guard v(verrou);
        rendus.push_back(membre);
    }
    void consigneRecue(uid_t, const std::string& corps, std::int64_t, std::int64_t) override {
        std::lock_guard v(verrou);
        consignes.push_back(corps);
    }
    nlohmann::json etat() const override { return nlohmann::json::object(); }
};

} // namespace tavi::test
