#pragma once

#include "support/dossier_temporaire.h"
#include "support/processus.h"

#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tavi::test {

// The reference family server as a family runs it: a fresh base in a temporary folder, the
// parents' commands on that base, and `tavi-famille servir` on a loopback port that stays the
// same when the server is stopped and started again.
class FamilleLocale {
public:
    FamilleLocale() = default;
    FamilleLocale(const FamilleLocale&) = delete;
    FamilleLocale& operator=(const FamilleLocale&) = delete;

    // A parents' command on the base.
    Sortie commande(std::vector<std::string> arguments);
    // The same, expected to succeed: its first line of output, parsed (discarded on failure).
    nlohmann::json commande1(const std::vector<std::string>& arguments);

    // Léa, in Paris's time zone, with a daily limit of 90 minutes and 20 in her piggy bank;
    // then a fresh pairing code for her.
    void preparerLea();
    std::string code();

    // Starts the server: on a free port the first time, on the same port afterwards. False
    // when it did not say where it listens.
    bool servir();
    // Stops it (SIGTERM) and gives its exit status.
    int arreter();
    std::string adresse() const { return "http://127.0.0.1:" + std::to_string(port_); }

    const DossierTemporaire& dossier() const { return dossier_; }
    // The environment of the agent and `tavi` run beside this family: their home, state,
    // configuration and runtime folders in the temporary folder, no display, no session bus
    // (the token goes to the fallback file) and the login agent as an autostart entry.
    std::map<std::string, std::string> environnementAgent() const;
    std::string base() const { return (dossier_ / "famille.db").string(); }

private:
    DossierTemporaire dossier_;
    std::unique_ptr<Processus> serveur_;
    int port_ = 0;
};

// The lines of a program's output.
std::vector<std::string> lignes(const std::string& texte);

} // namespace tavi::test
