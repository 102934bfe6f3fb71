#include "famille_locale.h"
#include "support/application_qt.h"
#include "support/serveur_brut.h"
#include "support/serveur_http.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

namespace tavi {
namespace {

using nlohmann::json;

// The shipped programs as a family uses them: `tavi reglage serveur` and `tavi rejoindre` pair
// the computer, `tavi-home --sans-interface` runs the agent. They run with their own home,
// state and configuration folders, no display and no session bus, so the token goes to the
// fallback file of the temporary state folder.
class TaviHomeSansInterface : public testing::Test {
protected:
    std::map<std::string, std::string> environnement() const {
        return famille.environnementAgent();
    }
    test::Sortie tavi(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), TAVI_BINAIRE);
        return test::executer(arguments, "", environnement());
    }
    std::unique_ptr<test::Processus> agent() {
        return std::make_unique<test::Processus>(
            std::vector<std::string>{TAVI_HOME_BINAIRE, "--sans-interface"}, environnement());
    }
    // Reads state lines until one satisfies `condition`; null when the agent ends or stays
    // silent for 10 s first.
    static json attendreLigne(test::Processus& p,
                              const std::function<bool(const json&)>& condition) {
        for (std::string ligne = p.ligne(); !ligne.empty(); ligne = p.ligne()) {
            json etat = json::parse(ligne, nullptr, false);
            EXPECT_FALSE(etat.is_discarded()) << ligne;
            if (condition(etat)) return etat;
        }
        return nullptr;
    }

    test::FamilleLocale famille;
};

TEST_F(TaviHomeSansInterface, RejointPublieSonEtatEtSignaleSonArret) {
    famille.preparerLea();
    ASSERT_TRUE(famille.servir());
    ASSERT_EQ(tavi({"reglage", "serveur", famille.adresse()}).statut, 0);

    // Unpaired, SIGTERM ends it at once; its first line says it is not paired.
    auto p = agent();
    EXPECT_EQ(attendreLigne(*p, [](const json&) { return true; })["relie"], false);
    EXPECT_EQ(p->arreter(), 0);

    const std::string code = famille.code();
    test::Sortie s = tavi({"rejoindre", code});
    ASSERT_EQ(s.statut, 0) << s.err;
    const json rejoint = json::parse(s.out, nullptr, false);
    EXPECT_EQ(rejoint["prenom"], "Léa") << s.out;
    s = tavi({"rejoindre", code});
    EXPECT_EQ(s.statut, 1);
    EXPECT_NE(s.err.find("tavi: 400 Code inconnu ou expiré.\n"), std::string::npos) << s.err;
    EXPECT_EQ(tavi({"rejoindre", code, "encore"}).statut, 2);
    // The secret went to the temporary state folder, and the login entry, which starts
    // tavi-home, to the temporary configuration folder.
    EXPECT_TRUE(std::filesystem::exists(famille.dossier() / "etat" / "tavi-home" / "secrets"));
    std::ifstream entree(famille.dossier() / "config" / "autostart" / "com.tavi.home.desktop");
    const std::string texteEntree{std::istreambuf_iterator<char>(entree), {}};
    EXPECT_NE(texteEntree.find(std::filesystem::canonical(TAVI_HOME_BINAIRE).string()),
              std::string::npos)
        << texteEntree;

    // Started again, it runs paired: a family pause reaches it, and then its stop the parents.
    p = agent();
    famille.commande1({"pause", "Léa", "15"});
    ASSERT_FALSE(attendreLigne(*p, [](const json& e) { return e["voile"].is_object(); }).is_null());
    EXPECT_EQ(p->arreter(), 0);
    const json rapport =
        json::parse(test::lignes(famille.commande({"rapport", "Léa"}).out).at(1), nullptr, false);
    EXPECT_EQ(rapport["ordinateur"].value("pourquoi", ""), "arrêt signalé") << rapport;
}

// Asked for help or its version, the agent answers and ends: without a display it would
// otherwise run on as an agent with no window, which `timeout` would end with 124.
TEST_F(TaviHomeSansInterface, LAideEtLaVersionRepondentSansDemarrerLAgent) {
    for (const char* option : {"--help", "-h", "--version"}) {
        const auto sortie = test::executer({"/usr/bin/timeout", "10", TAVI_HOME_BINAIRE, option},
                                           "", environnement());
        EXPECT_EQ(sortie.statut, 0) << option << ": " << sortie.err;
        const std::string attendu = option == std::string("--version")
                                        ? "tavi-home " TAVI_VERSION "\n"
                                        : "Utilisation : tavi-home [OPTION]";
        EXPECT_EQ(sortie.out.substr(0, attendu.size()), attendu) << option;
    }
}

TEST_F(TaviHomeSansInterface, UnServeurMuetNeRetientPasLArretAuDelaDeQuatreSecondes) {
    famille.preparerLea();
    ASSERT_TRUE(famille.servir());
    ASSERT_EQ(tavi({"reglage", "serveur", famille.adresse()}).statut, 0);
    ASSERT_EQ(tavi({"rejoindre", famille.code()}).statut, 0);

    // A server that takes every request and never answers.
    std::mutex verrou;
    std::vector<std::string> recues;
    test::ServeurBrut muet([&](int socket, const std::atomic<bool>& arret) {
        std::string requete = test::ServeurBrut::lireRequete(socket);
        {
            std::lock_guard garde(verrou);
            recues.push_back(std::move(requete));
        }
        while (!arret)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
    ASSERT_EQ(tavi({"reglage", "serveur", muet.adresse()}).statut, 0);
    auto p = agent();
    ASSERT_FALSE(attendreLigne(*p, [](const json& e) { return e["relie"] == true; }).is_null());
    // Its token is in hand once its first heartbeat reached the server.
    ASSERT_TRUE(test::attendreQue([&] {
        std::lock_guard garde(verrou);
        return !recues.empty();
    }));
    const auto debut = std::chrono::steady_clock::now();
    EXPECT_EQ(p->arreter(), 0);
    // Not a speed: without its own bound the report would hold the agent for libcurl's 20 s.
    EXPECT_LT(std::chrono::steady_clock::now() - debut, std::chrono::seconds(10));
    std::lock_guard garde(verrou);
    ASSERT_EQ(recues.size(), 2u) << "the stop report was not sent";
    EXPECT_NE(recues[1].find("POST /api/enfant/battement"), std::string::npos) << recues[1];
    EXPECT_NE(recues[1].find(R"("actif":false)"), std::string::npos) << recues[1];
}

// No Secret Service, and a fallback folder that cannot be made: the token would live only in
// the process, so the pairing is undone and the command fails.
TEST_F(TaviHomeSansInterface, UnTrousseauQuiRefuseLeJetonAnnuleLAppairage) {
    famille.preparerLea();
    ASSERT_TRUE(famille.servir());
    ASSERT_EQ(tavi({"reglage", "serveur", famille.adresse()}).statut, 0);
    std::ofstream(famille.dossier() / "etat" / "tavi-home" / "secrets") << "pas un dossier";

    test::Sortie s = tavi({"rejoindre", famille.code()});
    EXPECT_EQ(s.statut, 1) << s.out << s.err;
    EXPECT_NE(s.err.find("le trousseau refuse le jeton"), std::string::npos) << s.err;
    EXPECT_EQ(tavi({"reglage", "ordinateur_id"}).out, "null\n");
    EXPECT_FALSE(std::filesystem::exists(famille.dossier() / "config" / "autostart" /
                                         "com.tavi.home.desktop"));
}

// A server whose texts carry terminal controls: what the programs print from them is JSON a
// terminal shows as it stands, with the controls escaped.
TEST_F(TaviHomeSansInterface, LeTexteDUnServeurHostileSortEchappe) {
    const std::string hostile = "\x1b]0;titre\x07\x1b[2J\r\n\x7f\xc2\x9b"
                                "31m\xff";
    test::ServeurHttp serveur;
    serveur.route("POST", "/api/auth/ordinateur", [&](const auto&, auto& res) {
        res.set_content(json{{"jeton", "jeton-tres-secret"},
                             {"enfant", {{"id", "e1"}, {"prenom", "Léa" + hostile}}},
                             {"ordinateur", {{"id", "o7"}, {"nom", hostile}}}}
                            .dump(-1, ' ', false, json::error_handler_t::replace),
                        "application/json");
    });
    serveur.route("POST", "/api/enfant/battement", [&](const auto&, auto& res) {
        res.set_content(json{{"heure_serveur_ms", 1'795'442'223'946},
                             {"protege_maintenant", true},
                             {"cause", "pause_famille"},
                             {"titre", hostile},
                             {"fin_ms", 4'000'000'000'000},
                             {"regle", {{"mode", "tout"}}}}
                            .dump(-1, ' ', false, json::error_handler_t::replace),
                        "application/json");
    });
    serveur.demarrer();
    ASSERT_EQ(tavi({"reglage", "serveur", serveur.adresse()}).statut, 0);
    test::Sortie s = tavi({"rejoindre", "ABCD2345"});
    ASSERT_EQ(s.statut, 0) << s.err;
    auto p = agent();
    const std::string ligne = p->ligne();
    for (const std::string& sortie : {s.out.substr(0, s.out.size() - 1), ligne}) {
        for (const char* brut : {"\x1b", "\x07", "\r", "\x7f", "\xc2\x9b", "\xff"})
            EXPECT_EQ(sortie.find(brut), std::string::npos) << int(brut[0]) << " in " << sortie;
        EXPECT_EQ(sortie.find('\n'), std::string::npos);
        EXPECT_NE(sortie.find(R"(\u001b[2J\r\n\u007f\u009b31m)"), std::string::npos) << sortie;
    }
}

} // namespace
} // namespace tavi
