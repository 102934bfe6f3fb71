#include "commun/jour.h"
#include "famille_locale.h"
#include "support/variable.h"

#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace tavi {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// The agent as the child can treat it, as a process of their own: started with the time zone
// they choose, stopped and continued at will. It runs headless, paired with Léa against
// tavi-famille on loopback, its folders in the family's temporary folder.
class AgentCommeProcessus : public testing::Test {
protected:
    void SetUp() override {
        famille.preparerLea();
        ASSERT_TRUE(famille.servir());
        ASSERT_EQ(tavi({"reglage", "serveur", famille.adresse()}).statut, 0);
        ASSERT_EQ(tavi({"rejoindre", famille.code()}).statut, 0);
    }
    test::Sortie tavi(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), TAVI_BINAIRE);
        return test::executer(arguments, "", famille.environnementAgent());
    }
    std::unique_ptr<test::Processus> agent(const char* fuseau) {
        auto environnement = famille.environnementAgent();
        environnement["TZ"] = fuseau;
        return std::make_unique<test::Processus>(
            std::vector<std::string>{TAVI_HOME_BINAIRE, "--sans-interface"}, environnement);
    }
    // The stored `cle` once it is a `type`, within 15 s; null otherwise.
    json attendreReglage(const std::string& cle, json::value_t type) {
        for (int i = 0; i < 60; ++i, std::this_thread::sleep_for(250ms))
            if (json v = json::parse(tavi({"reglage", cle}).out, nullptr, false); v.type() == type)
                return v;
        return nullptr;
    }

    test::FamilleLocale famille;
};

// Today's key in the system's zone, as this process reads it without a TZ of its own.
std::string jourDuSysteme() {
    std::string jour;
    {
        test::Variable sansTz("TZ", nullptr);
        tzset();
        jour = jourLocal(std::int64_t{std::time(nullptr)} * 1000);
    }
    tzset();
    return jour;
}

} // namespace

// A TZ set in the child's session would start another day and its count from 0: the day keys
// the agent stores are the system zone's. At any instant one of these zones is on another day.
TEST_F(AgentCommeProcessus, LeJourDeLAgentEstCeluiDuFuseauDuSysteme) {
    for (const char* fuseau : {"Pacific/Kiritimati", "Pacific/Pago_Pago"}) {
        ASSERT_EQ(tavi({"reglage", "--supprimer", "reste_jour_de"}).statut, 0);
        const std::string avant = jourDuSysteme();
        auto p = agent(fuseau);
        const json jour = attendreReglage("reste_jour_de", json::value_t::string);
        const json compte = attendreReglage("compteur_jour", json::value_t::string);
        const std::string apres = jourDuSysteme();
        EXPECT_TRUE(jour == avant || jour == apres) << fuseau << ": " << jour << ", " << avant;
        EXPECT_TRUE(compte == avant || compte == apres) << fuseau << ": " << compte;
    }
}

// kill -STOP for half a minute, then -CONT: the time the agent was stopped while the computer
// ran is use, not a sleep (the session tells no idle time here, which counts as input).
TEST_F(AgentCommeProcessus, UnAgentArreteCompteLeTempsDeSonArret) {
    auto p = agent("UTC");
    ASSERT_FALSE(attendreReglage("compteur_s", json::value_t::number_float).is_null());
    ASSERT_EQ(kill(p->pid(), SIGSTOP), 0);
    std::this_thread::sleep_for(32s);
    ASSERT_EQ(kill(p->pid(), SIGCONT), 0);
    std::this_thread::sleep_for(3s);
    EXPECT_EQ(p->arreter(), 0);
    EXPECT_GE(attendreReglage("compteur_s", json::value_t::number_float).get<double>(), 32.0);
}

} // namespace tavi
