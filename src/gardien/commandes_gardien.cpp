#include "gardien/commandes_gardien.h"

#include "gardien/configuration.h"
#include "gardien/registre.h"
#include "generique/json_borne.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tavi {

using nlohmann::json;

namespace {

void imprimer(const json& ligne) {
    std::cout << ligne.dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
}

// The running guardian's own state, asked over its relay; none when no guardian answers.
std::optional<json> etatDuGardien(const std::string& relais) {
    sockaddr_un adresse{};
    adresse.sun_family = AF_UNIX;
    if (relais.size() >= sizeof adresse.sun_path) return std::nullopt;
    std::strcpy(adresse.sun_path, relais.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return std::nullopt;
    const timeval attente{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &attente, sizeof attente);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &attente, sizeof attente);
    std::string recu;
    if (connect(fd, reinterpret_cast<sockaddr*>(&adresse), sizeof adresse) == 0) {
        const std::string requete =
            "GET /gardien/etat HTTP/1.1\r\nHost: tavi-gardien\r\nConnection: close\r\n\r\n";
        if (send(fd, requete.data(), requete.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(requete.size())) {
            char tampon[16384];
            ssize_t n;
            while ((n = recv(fd, tampon, sizeof tampon, 0)) > 0 && recu.size() < (8u << 20))
                recu.append(tampon, static_cast<std::size_t>(n));
        }
    }
    close(fd);
    const auto fin = recu.find("\r\n\r\n");
    if (!recu.starts_with("HTTP/1.1 200 ") || fin == std::string::npos) return std::nullopt;
    try {
        return analyserDocument(std::string_view(recu).substr(fin + 4), 8u << 20);
    } catch (const DocumentInvalide&) {
        return std::nullopt;
    }
}

} // namespace

int commandeEtat(const OptionsGardien& options) {
    if (auto gardien = etatDuGardien(options.relais)) {
        for (const auto& compte : gardien->value("comptes", json::array()))
            imprimer(json{{"compte", compte}});
        for (const auto& erreur : gardien->value("erreurs", json::array()))
            imprimer(json{{"erreur", erreur}});
        imprimer(
            json{{"gardien", "actif"}, {"supervision", gardien->value("supervision", json())}});
        return 0;
    }
    // No guardian running: what the registry says, read directly (root only).
    const auto liste = Registre(options.etat).lister();
    for (const auto& compte : liste.comptes)
        imprimer(json{{"compte", compte.public_()}});
    for (const auto& erreur : liste.erreurs)
        imprimer(json{{"erreur", erreur}});
    imprimer(json{{"gardien", "absent"}});
    return 0;
}

int commandeServeur(const OptionsGardien& options, const std::string& adresse) {
    if (auto refus = refusAdresseServeur(adresse); !refus.empty()) {
        std::cerr << "tavi-gardien: " << refus << '\n';
        return 2;
    }
    if (auto ecrit = ecrireServeur(options.conf, adresse); !ecrit) {
        std::cerr << "tavi-gardien: " << ecrit.error() << '\n';
        return 1;
    }
    imprimer(json{{"serveur", adresse}});
    return 0;
}

int commandeOublier(const OptionsGardien& options, const std::string& compte) {
    const Registre registre(options.etat);
    std::optional<uid_t> uid;
    if (!compte.empty() && compte.size() <= 10 &&
        compte.find_first_not_of("0123456789") == std::string::npos &&
        std::stoull(compte) <= 0xfffffffeULL) {
        uid = static_cast<uid_t>(std::stoull(compte));
    } else {
        // The login name as recorded at pairing (the user may be gone since), else passwd's.
        for (const auto& relie : registre.lister().comptes)
            if (relie.compte == compte) uid = relie.uid;
        if (!uid)
            if (const passwd* entree = getpwnam(compte.c_str())) uid = entree->pw_uid;
    }
    if (!uid) {
        std::cerr << "tavi-gardien: compte inconnu : " << compte << '\n';
        return 1;
    }
    auto oublie = registre.oublier(*uid);
    if (!oublie) {
        std::cerr << "tavi-gardien: " << oublie.error() << '\n';
        return 1;
    }
    imprimer(json{{"uid", *uid}, {"oublie", *oublie}});
    return *oublie ? 0 : 1;
}

} // namespace tavi
