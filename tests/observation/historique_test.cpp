#include "observation/historique.h"

#include <gtest/gtest.h>

using namespace tavi;
using nlohmann::json;

namespace {
// 2026-11-19 10:59:59 UTC.
constexpr std::int64_t h1059 = 1'795'085'999'000;
} // namespace

TEST(Historique, UnLotSePrendParHeureUTCEtRevientFusionneApresUnEchec) {
    Historique h;
    EXPECT_FALSE(h.prendre());
    h.noter("exemple.fr", 12.5, h1059);
    h.noter("exemple.fr", 12.4, h1059 + 1000);
    h.noter("jeux.fr", 3000, h1059 - 60'000);
    h.noter("jeux.fr", 1000, h1059);
    h.noter("jeux.fr", -5, h1059 - 120'000);
    auto lot = h.prendre();
    ASSERT_TRUE(lot);
    EXPECT_EQ(*lot, json::parse(R"([
        {"d": "exemple.fr", "p": 1795085999000, "f": 1795085999000, "s": 13},
        {"d": "exemple.fr", "p": 1795086000000, "f": 1795086000000, "s": 12},
        {"d": "jeux.fr", "p": 1795085939000, "f": 1795085879000, "s": 3600}])"));

    // Nothing new: no batch, and the one taken stays for a failure.
    EXPECT_FALSE(h.prendre());
    h.noter("jeux.fr", 10, h1059 + 500);
    h.echec();
    EXPECT_EQ(*h.prendre(), json::parse(R"([
        {"d": "exemple.fr", "p": 1795085999000, "f": 1795085999000, "s": 13},
        {"d": "exemple.fr", "p": 1795086000000, "f": 1795086000000, "s": 12},
        {"d": "jeux.fr", "p": 1795085939000, "f": 1795085999500, "s": 3600}])"));
}
