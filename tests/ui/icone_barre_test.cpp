#include "ui/icone_barre.h"
#include "ui/lisible.h"

#include <gtest/gtest.h>

namespace tavi {
namespace {

TEST(TexteBadge, MinutesJusquA99PuisHeuresJamaisPlusQuIlNEnReste) {
    const std::pair<double, const char*> cas[] = {
        {0, "0"},        {40, "1"},        {59.9, "1"},      {61, "2"},        {45 * 60, "45"},
        {99 * 60, "99"}, {100 * 60, "1h"}, {119 * 60, "1h"}, {2 * 3600, "2h"}, {12 * 3600, "12h"},
    };
    for (const auto& [secondes, attendu] : cas)
        EXPECT_EQ(texteBadge(dureeLisible(secondes)), attendu) << secondes;
    for (const char* autre : {"", "Au lit", "1 2 3"})
        EXPECT_EQ(texteBadge(autre), "") << autre;
}

} // namespace
} // namespace tavi
