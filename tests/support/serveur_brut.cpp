#include "support/serveur_brut.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace tavi::test {

ServeurBrut::ServeurBrut(Conduite conduite) : conduite_(std::move(conduite)) {
    ecoute_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in adresse{};
    adresse.sin_family = AF_INET;
    adresse.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t taille = sizeof adresse;
    if (ecoute_ < 0 || bind(ecoute_, reinterpret_cast<sockaddr*>(&adresse), taille) != 0 ||
        listen(ecoute_, 16) != 0 ||
        getsockname(ecoute_, reinterpret_cast<sockaddr*>(&adresse), &taille) != 0)
        throw std::runtime_error("serveur brut : pas de port");
    port_ = ntohs(adresse.sin_port);
    accepter();
}

ServeurBrut::ServeurBrut(Conduite conduite, const std::string& chemin)
    : conduite_(std::move(conduite)) {
    ecoute_ = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un adresse{};
    adresse.sun_family = AF_UNIX;
    chemin.copy(adresse.sun_path, sizeof adresse.sun_path - 1);
    if (ecoute_ < 0 || bind(ecoute_, reinterpret_cast<sockaddr*>(&adresse), sizeof adresse) != 0 ||
        chmod(chemin.c_str(), 0666) != 0 || listen(ecoute_, 16) != 0)
        throw std::runtime_error("serveur brut : pas de prise " + chemin);
    accepter();
}

void ServeurBrut::accepter() {
    accepteur_ = std::thread([this] {
        while (!arret_) {
            pollfd p{ecoute_, POLLIN, 0};
            if (poll(&p, 1, 100) <= 0) continue;
            int client = accept(ecoute_, nullptr, nullptr);
            if (client < 0) continue;
            std::lock_guard v(verrou_);
            connexions_.emplace_back([this, client] {
                conduite_(client, arret_);
                close(client);
            });
        }
    });
}

ServeurBrut::~ServeurBrut() {
    arret_ = true;
    accepteur_.join();
    close(ecoute_);
    std::lock_guard v(verrou_);
    for (auto& c : connexions_)
        c.join();
}

std::string ServeurBrut::lireRequete(int socket) {
    std::string lu;
    char tampon[65536];
    auto lire = [&] {
        pollfd p{socket, POLLIN, 0};
        if (poll(&p, 1, 5000) <= 0) return false;
        ssize_t n = recv(socket, tampon, sizeof tampon, 0);
        if (n <= 0) return false;
        lu.append(tampon, static_cast<std::size_t>(n));
        return true;
    };
    std::size_t finEntetes;
    while ((finEntetes = lu.find("\r\n\r\n")) == std::string::npos)
        if (!lire()) return {};
    std::size_t longueur = 0;
    if (auto champ = lu.find("Content-Length: "); champ != std::string::npos && champ < finEntetes)
        longueur = std::stoul(lu.substr(champ + 16, 12));
    while (lu.size() < finEntetes + 4 + longueur)
        if (!lire()) return {};
    return lu;
}

bool ServeurBrut::ecrire(int socket, const std::string& octets) {
    std::size_t envoye = 0;
    while (envoye < octets.size()) {
        ssize_t n = send(socket, octets.data() + envoye, octets.size() - envoye, MSG_NOSIGNAL);
        if (n <= 0) return false;
        envoye += static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace tavi::test
