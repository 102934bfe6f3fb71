#include "commun/jour.h"
#include "famille_locale.h"
#include "support/variable.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace tavi {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// The agent as the child can treat it, as a process of their own: started with the environment
// they choose, stopped and continued at will. It runs paired with Léa against tavi-famille on
// loopback, headless, with its folders in the family's temporary folder.
class AgentCommeProcessus : public testing::Test {
protected:
    void SetUp() override {
        famille.preparerLea();
        ASSERT_TRUE(famille.servir());
        ASSERT_EQ(tavi({"reglage", "serveur", famille.adresse()}).statut, 0);
        const test::Sortie s = tavi({"rejoindre", famille.code()});
        ASSERT_EQ(s.statut, 0) << s.err;
    }

    std::map<std::string, std::string> environnement(const std::string& fuseau) const {
        auto e = famille.environnementAgent();
        e["TZ"] = fuseau;
        return e;
    }
    test::Sortie tavi(std::vector<std::string> arguments, const std::string& fuseau = "UTC") {
        arguments.insert(arguments.begin(), TAVI_BINAIRE);
        return test::executer(arguments, "", environnement(fuseau));
    }
    std::unique_ptr<test::Processus> agent(const std::string& fuseau) {
        return std::make_unique<test::Processus>(
            std::vector<std::string>{TAVI_HOME_BINAIRE, "--sans-interface"}, environnement(fuseau));
    }
    json reglage(const std::string& cle) {
        return json::parse(tavi({"reglage", cle}).out, nullptr, false);
    }
    // Waits up to 15 s for the stored `cle` to satisfy `condition`.
    json attendreReglage(const std::string& cle,
                         const std::function<bool(const json&)>& condition) {
        for (int i = 0; i < 60; ++i) {
            json valeur = reglage(cle);
            if (condition(valeur)) return valeur;
            std::this_thread::sleep_for(250ms);
        }
        return nullptr;
    }

    test::FamilleLocale famille;
};

// Today's key in the system's time zone, as the test process reads it with no TZ of its own.
std::string jourDuSysteme() {
    std::string jour;
    {
        test::Variable sansTz("TZ", nullptr);
        tzset();
        jour = jourLocal(static_cast<std::int64_t>(std::time(nullptr)) * 1000);
    }
    tzset();
    return jour;
}

} // namespace

// A TZ set in the child's session would start another day, with its count back to 0: the day
// key the agent stores is the system zone's. At any instant one of these two zones is on
// another day than the system's.
TEST_F(AgentCommeProcessus, LeJourDeLAgentEstCeluiDuFuseauDuSysteme) {
    for (const char* fuseau : {"Pacific/Kiritimati", "Pacific/Pago_Pago"}) {
        SCOPED_TRACE(fuseau);
        ASSERT_EQ(tavi({"reglage", "--supprimer", "reste_jour_de"}).statut, 0);
        const std::string avant = jourDuSysteme();
        auto p = agent(fuseau);
        const json jour =
            attendreReglage("reste_jour_de", [](const json& v) { return v.is_string(); });
        const std::string apres = jourDuSysteme();
        ASSERT_TRUE(jour.is_string()) << "no heartbeat answer stored in 15 s";
        EXPECT_TRUE(jour == avant || jour == apres) << jour << " is not " << avant;
        const json compte = reglage("compteur_jour");
        EXPECT_TRUE(compte == avant || compte == apres) << compte;
        EXPECT_EQ(p->arreter(), 0);
    }
}

// kill -STOP for half a minute, then -CONT: the time the agent was stopped while the computer
// ran is use (the session gives no idle time here, which counts as input), not a sleep.
TEST_F(AgentCommeProcessus, UnAgentArreteCompteLeTempsDeSonArret) {
    auto p = agent("UTC");
    ASSERT_FALSE(
        attendreReglage("compteur_s", [](const json& v) { return v.is_number(); }).is_null())
        << "the agent counts nothing here";
    ASSERT_EQ(kill(p->pid(), SIGSTOP), 0);
    std::this_thread::sleep_for(32s);
    ASSERT_EQ(kill(p->pid(), SIGCONT), 0);
    std::this_thread::sleep_for(3s);
    EXPECT_EQ(p->arreter(), 0);
    EXPECT_GE(reglage("compteur_s").get<double>(), 32.0);
}

} // namespace tavi
