#pragma once

#include "depot.h"
#include "serveur.h"
#include "support/dossier_temporaire.h"
#include "temps.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <httplib.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavi::famille::essai {

using test::DossierTemporaire;

// A JSON POST from the installation `installation`, bearing `jeton` when there is one.
inline httplib::Result posterTexte(httplib::Client& client, const std::string& chemin,
                                   const std::string& corps, const std::string& jeton = {},
                                   const std::string& installation = "installation-essai") {
    httplib::Headers entetes = {{"X-Tavi-Installation", installation}};
    if (!jeton.empty()) entetes.emplace("Authorization", "Bearer " + jeton);
    return client.Post(chemin.c_str(), entetes, corps, "application/json");
}
inline httplib::Result poster(httplib::Client& client, const std::string& chemin,
                              const nlohmann::json& corps, const std::string& jeton = {},
                              const std::string& installation = "installation-essai") {
    return posterTexte(client, chemin, corps.dump(), jeton, installation);
}

inline nlohmann::json corpsJson(const httplib::Result& reponse) {
    return reponse ? nlohmann::json::parse(reponse->body, nullptr, false) : nullptr;
}

// A heartbeat body as the agent sends it, with today's use.
inline nlohmann::json battement(double utiliseJourMin) {
    return {{"actif", true},
            {"incertain", false},
            {"plateforme", "linux"},
            {"version", "0.1.0"},
            {"systeme", "Debian 12"},
            {"autorisations", {{"ouverture_session", true}, {"automatisation", true}}},
            {"utilise_jour_min", utiliseJourMin}};
}

// A real server on a free loopback port over a real SQLite file in a temporary folder.
class ServeurEssai {
public:
    explicit ServeurEssai(OptionsServeur options_ = {}) : options(std::move(options_)) {
        options.hote = "127.0.0.1";
        options.port = 0;
        redemarrer();
        depot_ = std::make_unique<Depot>(base_.string(), Base::Ouverture::existante);
    }
    ~ServeurEssai() {
        if (serveur) serveur->arreter();
    }

    // Starts a server again on the same file (a restart), with the same options.
    void redemarrer() {
        if (serveur) serveur->arreter();
        serveur.reset();
        serveur = std::make_unique<Serveur>(base_.string(), options);
        serveur->demarrer();
    }
    httplib::Client client() const {
        httplib::Client client("127.0.0.1", serveur->port());
        client.set_keep_alive(true);
        client.set_tcp_nodelay(true);
        client.set_read_timeout(20, 0);
        return client;
    }
    int port() const { return serveur->port(); }
    Depot& depot() { return *depot_; }
    const std::filesystem::path& base() const { return base_; }

    // Adds a child (zone Europe/Paris) and pairs one computer; returns its token.
    std::string enfantEtOrdinateur(const std::string& prenom, const std::string& installation) {
        depot_->ajouterEnfant(prenom, "fr", "Europe/Paris", maintenantMs());
        return appairer(prenom, installation);
    }
    std::string appairer(const std::string& prenom, const std::string& installation) {
        auto c = client();
        auto reponse = poster(c, "/api/auth/ordinateur",
                              {{"code", depot_->creerCode(prenom, maintenantMs()).code},
                               {"nom", "PC de " + prenom},
                               {"version", "0.1.0"}},
                              {}, installation);
        if (!reponse || reponse->status != 200) throw std::runtime_error("appairage refusé");
        return nlohmann::json::parse(reponse->body).at("jeton").get<std::string>();
    }
    // Léa's report lines of one kind ("ordinateur", "site", "signal"...), seen at `instant`.
    std::vector<nlohmann::json> lignes(const std::string& genre, std::int64_t instant = 0) {
        std::vector<nlohmann::json> trouvees;
        for (const auto& ligne : depot_->rapport("Léa", instant ? instant : maintenantMs()))
            if (ligne.contains(genre)) trouvees.push_back(ligne.at(genre));
        return trouvees;
    }
    // The single integer a query returns, straight from the file.
    std::int64_t compter(const std::string& sql) {
        auto r = depot_->base().requete(sql);
        return r.ligne() ? r.entier(0) : -1;
    }

private:
    DossierTemporaire dossier;
    std::filesystem::path base_ = dossier / "famille.db";
    OptionsServeur options;
    std::unique_ptr<Serveur> serveur;
    std::unique_ptr<Depot> depot_; // a second connection, as a parents' command would have
};

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
