#include "support/serveur_http.h"

#include <stdexcept>

namespace tavi::test {

ServeurHttp::ServeurHttp() {
    serveur_.set_tcp_nodelay(true);
    serveur_.set_keep_alive_timeout(60);
}

ServeurHttp::~ServeurHttp() {
    serveur_.stop();
    if (fil_.joinable()) fil_.join();
}

void ServeurHttp::route(const std::string& methode, const std::string& chemin, Reponse reponse) {
    // Recorded before answering, so a test that has its answer also sees its request.
    auto gerer = [this, reponse](const httplib::Request& req, httplib::Response& res) {
        {
            std::lock_guard v(verrou_);
            requetes_.push_back(
                {req.method, req.path, {req.headers.begin(), req.headers.end()}, req.body});
        }
        reponse(req, res);
    };
    if (methode == "GET")
        serveur_.Get(chemin, gerer);
    else
        serveur_.Post(chemin, gerer);
}

void ServeurHttp::demarrer() {
    port_ = serveur_.bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("pas de port libre");
    fil_ = std::thread([this] { serveur_.listen_after_bind(); });
    // The socket already listens: connections wait in its backlog until the loop runs.
    while (!serveur_.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string ServeurHttp::adresse() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

std::vector<ServeurHttp::Requete> ServeurHttp::requetes() const {
    std::lock_guard v(verrou_);
    return requetes_;
}

} // namespace tavi::test
