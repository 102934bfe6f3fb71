// The delegate around the engine of a real session (tavi-famille on loopback, SQLite, the
// autostart entry in a temporary folder), with the other copies and the power events the
// test's own: when the welcome window opens, and when a quit request is refused.
#include "agent_et_famille.h"
#include "app/delegue.h"
#include "app/filtre_fin.h"
#include "fausses_copies.h"
#include "platform/alimentation.h"
#include "support/application_qt.h"

#include <QCoreApplication>
#include <QEvent>

namespace tavi {
namespace {

class FenetresComptees : public Delegue::Fenetres {
public:
    explicit FenetresComptees(int& compte) : montrees(compte) {}
    void montrerAccueil() override { ++montrees; }
    int& montrees;
};

class DelegueEtFamille : public test::AgentEtFamille {
protected:
    std::unique_ptr<Delegue> delegue(bool estAgent) {
        return std::make_unique<Delegue>(*boucle, moteur(), copies, alimentation, estAgent, [this] {
            return std::make_unique<FenetresComptees>(accueils);
        });
    }
    // Whether the application's quit request was refused (or put off).
    static bool quitterRefuse() {
        QEvent quitter(QEvent::Quit);
        QCoreApplication::sendEvent(QCoreApplication::instance(), &quitter);
        return !quitter.isAccepted();
    }

    FaussesCopies copies;
    Alimentation alimentation;
    int accueils = 0;
};

TEST_F(DelegueEtFamille, LAccueilSOuvreQuandIlManqueQuelqueChoseEtUnAgentReliéNeQuittePas) {
    auto d = delegue(true);
    FiltreFin filtre(*QCoreApplication::instance(), *d);
    d->lancer();
    EXPECT_TRUE(copies.tenue && copies.tenueParAgent);
    ASSERT_TRUE(test::attendreQue([&] { return accueils == 1; })) << "unpaired: the welcome opens";
    EXPECT_FALSE(quitterRefuse()) << "an unpaired agent may quit";

    relier();
    d->montrerSiBesoin(false);
    ASSERT_TRUE(test::attendreQue([&] { return accueils == 2; }))
        << "paired, but the child has not seen what the parents see";
    moteur().consentir();
    d->montrerSiBesoin(false);
    bool lu = false;
    moteur().lireEtatAgent([&] { lu = true; });
    ASSERT_TRUE(test::attendreQue([&] { return lu; }));
    test::attendreQue([] { return false; }, std::chrono::milliseconds(200));
    EXPECT_EQ(accueils, 2) << "paired, consent given and the login agent registered";
    copies.quandMontrer();
    EXPECT_EQ(accueils, 3) << "another copy asks: always";

    EXPECT_TRUE(quitterRefuse()) << "a paired agent refuses to quit";
    moteur().oublier();
    EXPECT_FALSE(quitterRefuse()) << "once the pairing is forgotten it may";
}

} // namespace
} // namespace tavi
