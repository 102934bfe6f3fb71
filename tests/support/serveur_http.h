#pragma once

#include <functional>
#include <httplib.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tavi::test {

// A real HTTP server on a free loopback port, run on its own threads, that remembers every
// request it received. Routes are set before `demarrer`.
class ServeurHttp {
public:
    struct Requete {
        std::string methode;
        std::string chemin;
        std::multimap<std::string, std::string, httplib::detail::ci> entetes;
        std::string corps;
        bool aEntete(const std::string& nom) const { return entetes.count(nom) > 0; }
        std::string entete(const std::string& nom) const {
            auto it = entetes.find(nom);
            return it == entetes.end() ? "" : it->second;
        }
    };
    using Reponse = std::function<void(const httplib::Request&, httplib::Response&)>;

    ServeurHttp();
    ~ServeurHttp();

    void route(const std::string& methode, const std::string& chemin, Reponse reponse);
    void demarrer();
    std::string adresse() const; // "http://127.0.0.1:PORT"
    std::vector<Requete> requetes() const;

private:
    httplib::Server serveur_;
    std::thread fil_;
    int port_ = 0;
    mutable std::mutex verrou_;
    std::vector<Requete> requetes_;
};

} // namespace tavi::test
