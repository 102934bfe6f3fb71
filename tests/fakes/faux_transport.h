#pragma once

#include "barriere.h"
#include "server/transport.h"

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace tavi::test {

// A family server in memory, from any thread: it records each request and answers from a
// queue per path, else with `parDefaut` (an empty JSON object). While `lent` holds them, the
// exchanges wait, like a server that takes its time.
class FauxTransport : public Transport {
public:
    using Issue = Attendu<ReponseHttp, ErreurTransport>;
    struct Requete {
        std::string methode;
        std::string chemin; // the URL's path
        std::map<std::string, std::string> entetes;
        nlohmann::json corps; // null without a body, the text as it came when it is not JSON
    };

    static Issue ok(const nlohmann::json& corps) { return ReponseHttp{200, {}, corps.dump()}; }
    static Issue statut(long code, const std::string& detail = "refusé") {
        return ReponseHttp{code, {}, nlohmann::json{{"detail", detail}}.dump()};
    }

    Barriere lent;
    std::function<Issue(const Requete&)> parDefaut = [](const Requete&) {
        return ok(nlohmann::json::object());
    };

    void enFile(const std::string& chemin, Issue issue) {
        std::lock_guard verrou(mutex);
        files[chemin].push_back(std::move(issue));
    }
    std::vector<Requete> requetes(const std::string& chemin) const {
        std::lock_guard verrou(mutex);
        std::vector<Requete> choisies;
        for (const Requete& r : recues)
            if (r.chemin == chemin) choisies.push_back(r);
        return choisies;
    }

    Issue echanger(const RequeteHttp& requete) override {
        Requete r{requete.methode, requete.url, {}, nullptr};
        r.entetes.insert(requete.entetes.begin(), requete.entetes.end());
        if (auto debut = r.chemin.find("://"); debut != std::string::npos)
            r.chemin.erase(0, r.chemin.find('/', debut + 3));
        if (requete.corps) r.corps = nlohmann::json::parse(*requete.corps, nullptr, false);
        if (requete.corps && r.corps.is_discarded()) r.corps = *requete.corps;

        {
            std::lock_guard verrou(mutex);
            recues.push_back(r);
        }
        lent.passer();
        std::unique_lock verrou(mutex);
        if (auto& file = files[r.chemin]; !file.empty()) {
            Issue issue = std::move(file.front());
            file.pop_front();
            return issue;
        }
        verrou.unlock();
        return parDefaut(r);
    }

private:
    mutable std::mutex mutex;
    std::map<std::string, std::deque<Issue>> files;
    std::vector<Requete> recues;
};

} // namespace tavi::test
