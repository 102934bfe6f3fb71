#pragma once

#include "depot.h"
#include "serveur.h"
#include "support/dossier_temporaire.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
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

httplib::Result posterTexte(httplib::Client& client, const std::string& chemin,
                            const std::string& corps, const std::string& jeton = {},
                            const std::string& installation = "installation-essai");
inline httplib::Result poster(httplib::Client& client, const std::string& chemin,
                              const nlohmann::json& corps, const std::string& jeton = {},
                              const std::string& installation = "installation-essai") {
    return posterTexte(client, chemin, corps.dump(), jeton, installation);
}

// The "detail" of a refusal, or "" when the body has none.
std::string detail(const httplib::Result& reponse);
inline nlohmann::json corpsJson(const httplib::Result& reponse) {
    return reponse ? nlohmann::json::parse(reponse->body, nullptr, false) : nullptr;
}

// A heartbeat body as the agent sends it, with today's use.
nlohmann::json battement(double utiliseJourMin);

// A server where Léa has one computer paired (installation "pc-1"), and a client for it.
class AvecLea : public testing::Test {
protected:
    httplib::Result battre(const nlohmann::json& corps) {
        return poster(client, "/api/enfant/battement", corps, jeton);
    }
    // The rule set answered to a heartbeat with today's use.
    nlohmann::json consigne(double utiliseJourMin) {
        return corpsJson(battre(battement(utiliseJourMin)));
    }

    ServeurEssai serveur;
    std::string jeton = serveur.enfantEtOrdinateur("Léa", "pc-1");
    httplib::Client client = serveur.client();
};

} // namespace tavi::famille::essai
