#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace tavi::famille::essai {

// A raw TCP connection from a chosen loopback address, for what an HTTP client library would
// never send: dribbled heads, endless headers, pipelined requests.
class Prise {
public:
    explicit Prise(int port, const std::string& source = "127.0.0.1");
    ~Prise();
    Prise(const Prise&) = delete;
    Prise& operator=(const Prise&) = delete;

    // False once the server has closed or reset the connection.
    bool envoyer(std::string_view octets);
    // What the server sends until it closes or `delai` passes; `fermee` says which.
    std::string lire(std::chrono::milliseconds delai);
    bool fermee = false;

private:
    int fd = -1;
};

// A JSON POST as raw bytes, with the extra header lines `entetes` ("Name: value\r\n" each).
std::string requeteBrute(const std::string& chemin, const std::string& corps,
                         const std::string& entetes = "");
// The status of a raw HTTP/1.1 answer, -1 when there is none.
int statutHttp(const std::string& reponse);

} // namespace tavi::famille::essai
