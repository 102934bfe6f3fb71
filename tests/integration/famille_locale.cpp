#include "famille_locale.h"

#include <gtest/gtest.h>
#include <sstream>

namespace tavi::test {

using nlohmann::json;

Sortie FamilleLocale::commande(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {TAVI_FAMILLE_BINAIRE, "--base", base()});
    return executer(arguments);
}

json FamilleLocale::commande1(const std::vector<std::string>& arguments) {
    Sortie s = commande(arguments);
    EXPECT_EQ(s.statut, 0) << s.err;
    return json::parse(s.out.substr(0, s.out.find('\n')), nullptr, false);
}

void FamilleLocale::preparerLea() {
    commande1({"enfant", "ajouter", "Léa", "--fuseau", "Europe/Paris"});
    commande1({"limite", "Léa", "90"});
    commande1({"tirelire", "Léa", "+20"});
}

std::string FamilleLocale::code() {
    return commande1({"code", "Léa"}).value("code", "");
}

bool FamilleLocale::servir() {
    serveur_ = std::make_unique<Processus>(
        std::vector<std::string>{TAVI_FAMILLE_BINAIRE, "--base", base(), "servir", "--adresse",
                                 "127.0.0.1:" + std::to_string(port_)});
    const json ecoute = json::parse(serveur_->ligne(), nullptr, false);
    if (!ecoute.contains("port")) return false;
    port_ = ecoute["port"].get<int>();
    return true;
}

std::map<std::string, std::string> FamilleLocale::environnementAgent() const {
    return {{"HOME", (dossier_ / "maison").string()},
            {"XDG_STATE_HOME", (dossier_ / "etat").string()},
            {"XDG_CONFIG_HOME", (dossier_ / "config").string()},
            {"XDG_RUNTIME_DIR", (dossier_ / "etat").string()},
            {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"},
            {"DISPLAY", ""},
            {"WAYLAND_DISPLAY", ""}};
}

int FamilleLocale::arreter() {
    const int statut = serveur_ ? serveur_->arreter() : -1;
    serveur_.reset();
    return statut;
}

std::vector<std::string> lignes(const std::string& texte) {
    std::vector<std::string> resultat;
    std::istringstream flux(texte);
    for (std::string ligne; std::getline(flux, ligne);)
        resultat.push_back(ligne);
    return resultat;
}

} // namespace tavi::test
