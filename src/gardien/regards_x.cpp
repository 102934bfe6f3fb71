#include "gardien/regards.h"
#include "gardien/regards_x_ecran.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace tavi {
namespace {

// The displays watched, each by its worker, and one watchdog for them all that shuts down the
// socket of a worker waiting on its X server for too long.
class RegardsX : public Regards {
public:
    RegardsX() : chien([this] { veiller(); }) {}
    ~RegardsX() override {
        {
            std::lock_guard garde(verrou);
            fini = true;
        }
        reveil.notify_all();
        chien.join();
        std::lock_guard garde(verrou);
        // Each worker's socket is shut down before it is joined: none waits on its X server.
        ecrans.clear();
    }

    std::optional<RegardX> regarder(const AccesX& acces, pid_t agent) override {
        std::lock_guard garde(verrou);
        auto trouve = ecrans.find(acces.affichage);
        if (trouve == ecrans.end()) {
            ecrans.emplace(acces.affichage, std::make_unique<EcranX>(acces, agent));
            return std::nullopt;
        }
        return trouve->second->regarder(acces, agent);
    }

    void garderSeulement(const std::set<std::string>& affichages) override {
        std::vector<std::unique_ptr<EcranX>> partants;
        {
            std::lock_guard garde(verrou);
            for (auto it = ecrans.begin(); it != ecrans.end();) {
                if (affichages.count(it->first)) {
                    ++it;
                    continue;
                }
                partants.push_back(std::move(it->second));
                it = ecrans.erase(it);
            }
        }
        partants.clear();
    }

    void afficherAvis(const AccesX& acces, const std::string& texte) override {
        std::lock_guard garde(verrou);
        auto& ecran = ecrans[acces.affichage];
        if (!ecran) ecran = std::make_unique<EcranX>(acces, 0);
        ecran->avis(texte);
    }

    void retirerAvis(const std::string& affichage) override {
        std::lock_guard garde(verrou);
        const auto trouve = ecrans.find(affichage);
        if (trouve != ecrans.end()) trouve->second->avis(std::nullopt);
    }

private:
    void veiller() {
        std::unique_lock garde(verrou);
        while (!fini) {
            reveil.wait_for(garde, std::chrono::milliseconds(250));
            const std::int64_t maintenant = monotoneMs();
            for (auto& [affichage, ecran] : ecrans)
                ecran->surveiller(maintenant);
        }
    }

    std::mutex verrou;
    std::condition_variable reveil;
    bool fini = false;
    std::map<std::string, std::unique_ptr<EcranX>> ecrans;
    std::thread chien;
};

} // namespace

std::unique_ptr<Regards> creerRegardsX() {
    return std::make_unique<RegardsX>();
}

} // namespace tavi
