#include "engine/trousseau_serie.h"
#include "fausse_boucle.h"
#include "platform/memoire/coffre_memoire.h"

#include <gtest/gtest.h>
#include <stdexcept>

using namespace tavi;

namespace {

// A store whose every call throws, as a broken keyring library would, until `enPanne` drops.
struct CoffreCasse : CoffreMemoire {
    bool enPanne = true;
    std::optional<std::string> lire(const std::string& s, const std::string& c) const override {
        return enPanne ? throw std::runtime_error("keyring") : CoffreMemoire::lire(s, c);
    }
};

} // namespace

// Each operation hears back even when the store throws, and those queued behind it still run.
TEST(TrousseauSerie, UnCoffreQuiLeveRepondQuandMemeEtNeBloquePasLaFile) {
    test::FausseBoucle boucle;
    CoffreCasse coffre;
    TrousseauSerie trousseau(boucle, coffre);
    std::vector<std::string> vu;
    const auto lu = [&](std::optional<std::string> jeton) { vu.push_back(jeton.value_or("-")); };
    trousseau.lire(lu);
    trousseau.ecrire("j1", [&](bool ok) { vu.push_back(ok ? "rangé" : "refusé"); });
    boucle.terminerArrierePlan();
    coffre.enPanne = false;
    trousseau.ecrire("j2", [&](bool ok) { vu.push_back(ok ? "rangé" : "refusé"); });
    trousseau.lire(lu);
    boucle.terminerArrierePlan();
    EXPECT_EQ(vu, (std::vector<std::string>{"-", "refusé", "rangé", "j2"}));
}
