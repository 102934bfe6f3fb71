#pragma once

#include "app/agent_linux.h"
#include "famille_locale.h"
#include "platform/linux/demarrage_linux.h"
#include "platform/memoire/coffre_memoire.h"
#include "platform/qt/boucle_qt.h"
#include "platform/sqlite/reglages_sqlite.h"
#include "support/application_qt.h"

#include <gtest/gtest.h>
#include <memory>

namespace tavi::test {

// The engine as the agent runs it (the Linux parts, libcurl, the Qt loop, SQLite and the login
// agent's autostart entry in a temporary folder, the console veil), with the token kept in
// memory, unpaired, against `tavi-famille` on a loopback port over a fresh base where Léa waits.
class AgentEtFamille : public testing::Test {
protected:
    void SetUp() override {
        famille.preparerLea();
        ASSERT_TRUE(famille.servir());
        reglages.ecrire("serveur", famille.adresse());
        agent = std::make_unique<AgentLinux>(*boucle, reglages, coffre, demarrage);
    }
    void TearDown() override {
        agent.reset();
        // The loop waits for its background work before the store and the secret go.
        boucle.reset();
    }

    Moteur& moteur() { return agent->moteur(); }
    // Pairs the engine with Léa's code, as the welcome window does.
    void relier() {
        std::optional<ResultatApi<Rejoindre>> reponse;
        moteur().rejoindre(famille.code(), [&](ResultatApi<Rejoindre> r) { reponse = r; });
        ASSERT_TRUE(attendreQue([&] { return reponse.has_value(); }));
        ASSERT_TRUE(*reponse) << decrire(reponse->error());
    }

    FamilleLocale famille;
    DossierTemporaire dossier;
    ReglagesSqlite reglages{dossier / "reglages.sqlite"};
    CoffreMemoire coffre;
    DemarrageLinux demarrage{[this] {
        OptionsDemarrage options;
        options.executable = TAVI_HOME_BINAIRE;
        options.configMaison = dossier / "config";
        options.mode = ModeDemarrage::xdg;
        return options;
    }()};
    std::unique_ptr<BoucleQt> boucle = std::make_unique<BoucleQt>();
    std::unique_ptr<AgentLinux> agent;
};

} // namespace tavi::test
