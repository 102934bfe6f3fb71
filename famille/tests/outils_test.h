#pragma once

#include "depot.h"
#include "serveur.h"
#include "support/dossier_temporaire.h"

#include <cstdint>
#include <filesystem>
#include <httplib.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tavi::famille::essai {

using test::DossierTemporaire;

// A real server on a free loopback port over a real SQLite file in a temporary folder.
class ServeurEssai {
public:
    explicit ServeurEssai(OptionsServeur options = {});
    ~ServeurEssai();

    // Starts a server again on the same file (a restart), with the same options.
    void redemarrer();
    httplib::Client client() const;
    int port() const { return serveur->port(); }
    Depot& depot() { return *depot_; }
    const std::filesystem::path& base() const { return base_; }

    // Adds a child (zone Europe/Paris) and pairs one computer; returns its token.
    std::string enfantEtOrdinateur(const std::string& prenom, const std::string& installation);
    std::string appairer(const std::string& prenom, const std::string& installation);
    // Léa's report lines of one kind ("ordinateur", "site", "signal"...), seen at `instant`.
    std::vector<nlohmann::json> lignes(const std::string& genre, std::int64_t instant = 0);
    // The single integer a query returns, straight from the file.
    std::int64_t compter(const std::string& sql);

private:
    DossierTemporaire dossier;
    std::filesystem::path base_;
    OptionsServeur options;
    std::unique_ptr<Serveur> serveur;
    std::unique_ptr<Depot> depot_; // a second connection, as a parents' command would have
};

httplib::Result poster(httplib::Client& client, const std::string& chemin,
                       const nlohmann::json& corps, const std::string& jeton = {},
                       const std::string& installation = "installation-essai");
httplib::Result posterTexte(httplib::Client& client, const std::string& chemin,
                            const std::string& corps, const std::string& jeton = {},
                            const std::string& installation = "installation-essai");

// The "detail" of a refusal, or "" when the body has none.
std::string detail(const httplib::Result& reponse);
nlohmann::json corpsJson(const httplib::Result& reponse);

// A heartbeat body as the agent sends it, with today's use.
nlohmann::json battement(double utiliseJourMin);

} // namespace tavi::famille::essai
