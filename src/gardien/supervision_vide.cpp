#include "gardien/supervision_vide.h"

namespace tavi {

namespace {

// Expects no agent anywhere: every heartbeat goes through, marked as not the guardian's.
class SupervisionVide : public Supervision {
public:
    void tic(const std::set<uid_t>&) override {}
    bool estAgent(uid_t, pid_t) const override { return false; }
    bool agentAttendu(uid_t) const override { return false; }
    void presenceOuverte(uid_t, pid_t) override {}
    void presenceFermee(uid_t, pid_t) override {}
    void signeDeVie(uid_t, pid_t) override {}
    nlohmann::json prendre(uid_t, pid_t pid) override { return {{"agent", false}, {"pid", pid}}; }
    void rendre(uid_t, const nlohmann::json&) override {}
    nlohmann::json etat() const override { return nlohmann::json::object(); }
};

} // namespace

std::unique_ptr<Supervision> creerSupervision(const OptionsSupervision&) {
    return std::make_unique<SupervisionVide>();
}

} // namespace tavi
