#include "engine/trousseau_serie.h"
#include "fausse_boucle.h"

#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace tavi;

namespace {

// A store whose every call throws while `enPanne` holds, as a broken keyring library would.
class CoffreCasse : public Coffre {
public:
    std::atomic<bool> enPanne{true};
    std::optional<std::string> secret;

    std::optional<std::string> lire(const std::string&, const std::string&) const override {
        verifier();
        return secret;
    }
    void ecrire(const std::string&, const std::string&, const std::string& s) override {
        verifier();
        secret = s;
    }
    void supprimer(const std::string&, const std::string&) override { verifier(); }

private:
    void verifier() const {
        if (enPanne) throw std::runtime_error("keyring library failed");
    }
};

} // namespace

// Each operation hears back even when the store throws, and the ones queued behind it run:
// a flag left in flight would keep the token from every heartbeat for good.
TEST(TrousseauSerie, UnCoffreQuiLeveRepondQuandMemeEtNeBloquePasLaFile) {
    test::FausseBoucle boucle;
    CoffreCasse coffre;
    TrousseauSerie trousseau(boucle, coffre);
    std::vector<std::string> vu;
    const auto lu = [&](std::optional<std::string> jeton) { vu.push_back(jeton.value_or("-")); };
    const auto range = [&](bool ok) { vu.push_back(ok ? "rangé" : "refusé"); };

    trousseau.lire(lu);
    trousseau.ecrire("j1", range);
    trousseau.effacer();
    boucle.terminerArrierePlan();
    EXPECT_EQ(vu, (std::vector<std::string>{"-", "refusé"}));
    EXPECT_FALSE(trousseau.occupe());

    coffre.enPanne = false;
    trousseau.ecrire("j2", range);
    trousseau.lire(lu);
    boucle.terminerArrierePlan();
    EXPECT_EQ(vu, (std::vector<std::string>{"-", "refusé", "rangé", "j2"}));
}
