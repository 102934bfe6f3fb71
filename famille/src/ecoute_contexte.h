#pragma once

// What the listener shares between its connections, and the constants that bound them.
// Included by ecoute.cpp only: Boost.Beast and Asio cost most of a build.
#include "budget_corps.h"
#include "ecoute.h"
#include "plafond_connexions.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <iostream>
#include <list>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <thread>
#include <type_traits>
#include <unordered_map>

namespace tavi::famille {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using Horloge = std::chrono::steady_clock;

namespace ecoute {

constexpr std::size_t limiteTete = 16 * 1024;
constexpr std::size_t champsMax = 100;
// Bodies this small are bounded enough by the connection cap, and stay out of the budget: an
// agent's plain heartbeat still goes through while large bodies hold all of it.
constexpr std::size_t petitCorps = 16 * 1024;
// Past a refusal what the client still sends is read and thrown away for a moment, so that it
// gets our answer rather than a reset; none of it is ever run as a request.
constexpr std::size_t vidangeMax = 16 * 1024 * 1024;
constexpr auto delaiVidange = std::chrono::seconds(2);
constexpr auto delaiEcriture = std::chrono::seconds(10);
// Descriptors kept out of the connection bound: the store, the listening socket, logs.
constexpr std::size_t descripteursReserves = 64;

// What is drained is never read: every connection may share one place to throw it.
inline std::array<char, 16384> poubelle;

inline std::string refus(const std::string& detail) {
    return nlohmann::json{{"detail", detail}}.dump();
}

// A size as a refusal states it: "1 Mio", "16 Kio".
inline std::string taille(std::size_t octets) {
    if (octets >= 1024 * 1024 && octets % (1024 * 1024) == 0)
        return std::to_string(octets / (1024 * 1024)) + " Mio";
    if (octets >= 1024 && octets % 1024 == 0) return std::to_string(octets / 1024) + " Kio";
    return std::to_string(octets) + " octets";
}

template <class Message>
RequeteHttp requeteDe(const Message& message, std::string chemin, std::string adresse) {
    RequeteHttp requete;
    requete.chemin = std::move(chemin);
    requete.adresse = std::move(adresse);
    for (const auto& champ : message) {
        std::string nom(champ.name_string().data(), champ.name_string().size());
        std::transform(nom.begin(), nom.end(), nom.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        requete.entetes.emplace(std::move(nom),
                                std::string(champ.value().data(), champ.value().size()));
    }
    return requete;
}

class SessionBase {
public:
    virtual ~SessionBase() = default;
    // From any thread: ends the connection once the answer in progress, if any, is written.
    virtual void fermer() = 0;
    // From any thread: ends at once a connection that has not sent a whole request, to which
    // nothing is owed.
    virtual void evincer() = 0;

    // Under Contexte::verrouSessions: its place among the connections that have not sent a
    // whole request yet, oldest first.
    std::optional<std::list<std::weak_ptr<SessionBase>>::iterator> rang;
};

struct Contexte {
    Contexte(ReglagesEcoute r, Ecoute::Traitement t, Ecoute::Verification v)
        : reglages(std::move(r)), traiter(std::move(t)), verifier(std::move(v)),
          plafond(reglages.connexionsParAdresse, connexionsPossibles(reglages.connexionsTotal)),
          budget(reglages.octetsCorpsEnCours), travail(reglages.travailleurs) {}

    static std::size_t connexionsPossibles(std::size_t voulues) {
        rlimit limite{};
        if (getrlimit(RLIMIT_NOFILE, &limite) != 0 || limite.rlim_cur == RLIM_INFINITY)
            return voulues;
        std::size_t permis = limite.rlim_cur > descripteursReserves * 2
                                 ? limite.rlim_cur - descripteursReserves
                                 : limite.rlim_cur / 2;
        return std::min(voulues, permis);
    }

    void accepter();
    void ouvrir(tcp::socket prise);

    void inscrire(const std::shared_ptr<SessionBase>& session) {
        std::lock_guard garde(verrouSessions);
        sessions.emplace(session.get(), session);
        session->rang = inachevees.insert(inachevees.end(), session);
    }
    // Once its first request is whole, a connection is an agent's, not one to make room with.
    void achever(SessionBase& session) {
        std::lock_guard garde(verrouSessions);
        if (session.rang) inachevees.erase(*session.rang);
        session.rang.reset();
    }
    void desinscrire(SessionBase* session) {
        std::lock_guard garde(verrouSessions);
        sessions.erase(session);
        if (session->rang) inachevees.erase(*session->rang);
    }
    // False when every connection has sent a whole request: the newcomer is then refused.
    bool evincerPlusAncienne() {
        std::shared_ptr<SessionBase> victime;
        {
            std::lock_guard garde(verrouSessions);
            // One that cannot be locked is being destroyed and takes itself off the list.
            for (auto it = inachevees.begin(); it != inachevees.end() && !victime; ++it)
                victime = it->lock();
            if (!victime) return false;
            inachevees.erase(*victime->rang);
            victime->rang.reset();
        }
        victime->evincer();
        return true;
    }

    ReglagesEcoute reglages;
    Ecoute::Traitement traiter;
    Ecoute::Verification verifier;
    PlafondConnexions plafond;
    BudgetCorps budget;
    std::mutex verrouSessions;
    std::unordered_map<SessionBase*, std::weak_ptr<SessionBase>> sessions;
    std::list<std::weak_ptr<SessionBase>> inachevees;
    std::atomic<bool> arret = false;
    std::optional<asio::ssl::context> tls;
    asio::io_context io{1};
    tcp::acceptor accepteur{io};
    asio::steady_timer repos{io};
    asio::thread_pool travail;
    std::thread boucle;
};

} // namespace ecoute

} // namespace tavi::famille
