#include "prise_test.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace tavi::famille::essai {

Prise::Prise(int port, const std::string& source) {
    fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, source.c_str(), &local.sin_addr);
    sockaddr_in distant{};
    distant.sin_family = AF_INET;
    distant.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, "127.0.0.1", &distant.sin_addr);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        connect(fd, reinterpret_cast<sockaddr*>(&distant), sizeof distant) != 0)
        throw std::runtime_error("connexion impossible depuis " + source);
}

Prise::~Prise() {
    close(fd);
}

bool Prise::envoyer(std::string_view octets) {
    while (!octets.empty()) {
        ssize_t n = send(fd, octets.data(), octets.size(), MSG_NOSIGNAL);
        if (n <= 0) return false;
        octets.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

std::string Prise::lire(std::chrono::milliseconds delai) {
    std::string recu;
    auto fin = std::chrono::steady_clock::now() + delai;
    while (!fermee) {
        auto reste = std::chrono::duration_cast<std::chrono::milliseconds>(
            fin - std::chrono::steady_clock::now());
        pollfd attente{fd, POLLIN, 0};
        if (poll(&attente, 1, static_cast<int>(std::max<std::int64_t>(reste.count(), 0))) <= 0)
            break;
        char morceau[65536];
        ssize_t n = recv(fd, morceau, sizeof morceau, 0);
        if (n <= 0)
            fermee = true;
        else
            recu.append(morceau, static_cast<std::size_t>(n));
    }
    return recu;
}

std::string requeteBrute(const std::string& chemin, const std::string& corps,
                         const std::string& entetes) {
    return "POST " + chemin + " HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n" +
           entetes + "Content-Length: " + std::to_string(corps.size()) + "\r\n\r\n" + corps;
}

int statutHttp(const std::string& reponse) {
    return reponse.rfind("HTTP/1.1 ", 0) == 0 ? std::stoi(reponse.substr(9, 3)) : -1;
}

} // namespace tavi::famille::essai
