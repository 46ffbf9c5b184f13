#include "SceneCore/Worlds/WorldManifest.h"
#include "SceneCore/Worlds/WorldTheme.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

// A theme's colours take "#RRGGBB" or "RRGGBB" with spaces around; a matte
// only "#RRGGBB" exactly (or "auto").
TEST(WorldTheme, ColourTextsOfThemesAndMattes)
{
    const struct {
        const char* text;
        std::optional<std::uint32_t> hex;
        bool matte;
    } cases[] = {
        {"#1A2B3C", 0x1A2B3C, true}, {"#1a2b3c", 0x1A2B3C, true}, {"1A2B3C", 0x1A2B3C, false},
        {" \t#1a2b3c\t ", 0x1A2B3C, false}, {"#1A2B3C ", 0x1A2B3C, false}, {"#1A2B3", {}, false},
        {"#1A2B3C4", {}, false}, {"##1A2B3C", {}, false}, {"#1A2G3C", {}, false}, {"", {}, false}, {"Auto", {}, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(WorldTheme::hex(c.text), c.hex) << c.text;
        WorldManifest::Visual v;
        v.matte = c.text;
        EXPECT_EQ(v.matteComponents().has_value(), c.matte) << c.text;
        EXPECT_EQ(v.hasMatte(), c.matte) << c.text;
    }
    WorldManifest::Visual v;
    v.matte = "#1A2B3C";
    EXPECT_DOUBLE_EQ(v.matteComponents()->green, 43.0 / 255);
    EXPECT_FALSE(v.matteIsAuto());
    v.matte = "auto";
    EXPECT_TRUE(v.matteIsAuto() && v.hasMatte() && !v.matteComponents());
}

} // namespace
} // namespace hushmeadows
