#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace tavi::famille::essai {

// A raw TCP connection from a chosen loopback address, for what an HTTP client library would
// never send: dribbled heads, endless headers, pipelined requests.
class Prise {
public:
    explicit Prise(int port, const std::string& source = "127.0.0.1")
        : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in local{}, distant{};
        local.sin_family = distant.sin_family = AF_INET;
        inet_pton(AF_INET, source.c_str(), &local.sin_addr);
        distant.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, "127.0.0.1", &distant.sin_addr);
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
            connect(fd, reinterpret_cast<sockaddr*>(&distant), sizeof distant) != 0)
            throw std::runtime_error("connexion impossible depuis " + source);
    }
    ~Prise() { close(fd); }
    Prise(const Prise&) = delete;
    Prise& operator=(const Prise&) = delete;

    // False once the server has closed or reset the connection.
    bool envoyer(std::string_view octets) {
        for (ssize_t n = 0; !octets.empty(); octets.remove_prefix(static_cast<std::size_t>(n)))
            if ((n = send(fd, octets.data(), octets.size(), MSG_NOSIGNAL)) <= 0) return false;
        return true;
    }
    // What the server sends until it closes or `delai` passes; `fermee` says which.
    std::string lire(std::chrono::milliseconds delai) {
        std::string recu;
        const auto fin = std::chrono::steady_clock::now() + delai;
        while (!fermee) {
            const auto reste = std::chrono::duration_cast<std::chrono::milliseconds>(
                fin - std::chrono::steady_clock::now());
            pollfd attente{fd, POLLIN, 0};
            if (poll(&attente, 1, static_cast<int>(std::max<std::int64_t>(reste.count(), 0))) <= 0)
                break;
            char morceau[65536];
            const ssize_t n = recv(fd, morceau, sizeof morceau, 0);
            fermee = n <= 0;
            if (n > 0) recu.append(morceau, static_cast<std::size_t>(n));
        }
        return recu;
    }
    bool fermee = false;

private:
    int fd = -1;
};

// A JSON POST as raw bytes, with the extra header lines `entetes` ("Name: value\r\n" each).
inline std::string requeteBrute(const std::string& chemin, const std::string& corps,
                                const std::string& entetes = "") {
    return "POST " + chemin + " HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n" +
           entetes + "Content-Length: " + std::to_string(corps.size()) + "\r\n\r\n" + corps;
}
// The status of a raw HTTP/1.1 answer, -1 when there is none.
inline int statutHttp(const std::string& reponse) {
    return reponse.rfind("HTTP/1.1 ", 0) == 0 ? std::stoi(reponse.substr(9, 3)) : -1;
}

} // namespace tavi::famille::essai
