#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tavi::test {

// A TCP server on a free loopback port that does whatever the test says with each connection:
// hang, reset, answer garbage, trickle. For faults a well-behaved HTTP server cannot make.
class ServeurBrut {
public:
    // Called on its own thread with the accepted socket; `arret` turns true when the server
    // stops, and the socket is closed after the call returns.
    using Conduite = std::function<void(int socket, const std::atomic<bool>& arret)>;

    explicit ServeurBrut(Conduite conduite);
    // The same on a Unix socket at `chemin`, which anybody may connect to.
    ServeurBrut(Conduite conduite, const std::string& chemin);
    ~ServeurBrut();

    std::string adresse() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // Helpers for conduites.
    // Reads one request, its body included (by Content-Length); empty when the client closed
    // or sent nothing for 5 s.
    static std::string lireRequete(int socket);
    static bool ecrire(int socket, const std::string& octets);

private:
    void accepter();

    Conduite conduite_;
    int ecoute_ = -1;
    int port_ = 0;
    std::atomic<bool> arret_{false};
    std::thread accepteur_;
    std::mutex verrou_;
    std::vector<std::thread> connexions_;
};

} // namespace tavi::test
