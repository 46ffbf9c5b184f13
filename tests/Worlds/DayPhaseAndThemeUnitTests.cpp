#include "SceneCore/Runtime/JsonReader.h"
#include "SceneCore/Worlds/DayPhase.h"
#include "SceneCore/Worlds/WorldManifest.h"
#include "SceneCore/Worlds/WorldTheme.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

using namespace std::chrono;

system_clock::time_point utc(int hour, int minute, int second = 0)
{
    return sys_days{year{2026} / 3 / 1} + hours{hour} + minutes{minute} + seconds{second};
}

TEST(DayPhase, TheCalendarsTimeZoneDecides)
{
    // 06:30 UTC is 08:30 two hours east and 23:30 the evening before seven hours west.
    EXPECT_EQ(DayPhase::at(utc(6, 30), Calendar::fixedOffset(hours{2})), DayPhase::day);
    EXPECT_EQ(DayPhase::at(utc(6, 30), Calendar::fixedOffset(hours{-7})), DayPhase::night);
    EXPECT_EQ(DayPhase::at(utc(12, 0), Calendar::fixedOffset(hours{0})), DayPhase::day);
}

TEST(WorldTheme, HexColourTexts)
{
    EXPECT_EQ(WorldTheme::hex("#1A2B3C"), 1'715'004u);
    EXPECT_EQ(WorldTheme::hex("1A2B3C"), 0x1A2B3Cu);
    EXPECT_EQ(WorldTheme::hex(" \t#1a2b3c\t "), 0x1A2B3Cu);
    EXPECT_FALSE(WorldTheme::hex("#1A2B3"));
    EXPECT_FALSE(WorldTheme::hex("#1A2B3C4"));
    EXPECT_FALSE(WorldTheme::hex("##1A2B3C"));
    EXPECT_FALSE(WorldTheme::hex("#1A2G3C"));
    EXPECT_FALSE(WorldTheme::hex(""));
}

TEST(WorldTheme, DecodingIsStrictInsideTheThemeButTheWorldIgnoresABadOne)
{
    auto theme = WorldTheme::fromJson(Json::parse(R"({"style":"cabin","appearance":"dark","colors":{}})"), {"theme"});
    EXPECT_EQ(theme.style, WorldTheme::Style::cabin);
    EXPECT_TRUE(theme.colors.empty());
    EXPECT_FALSE(theme.knownMaterial());

    theme.material = "Villa";
    EXPECT_FALSE(theme.knownMaterial());
    theme.material = "villa";
    EXPECT_EQ(theme.knownMaterial(), WorldTheme::Material::villa);

    EXPECT_THROW(WorldTheme::fromJson(Json::parse(R"({"style":"castle","appearance":"dark","colors":{}})"), {"theme"}), DecodingError);
    EXPECT_THROW(WorldTheme::fromJson(Json::parse(R"({"style":"city","colors":{}})"), {"theme"}), DecodingError);

    auto manifest = WorldManifest::decode(R"({"formatVersion":1,"id":"a","name":"A","visual":{"file":"v.mp4"},
        "theme":{"style":"castle","appearance":"dark","colors":{}}})");
    EXPECT_FALSE(manifest.theme);
}

} // namespace
} // namespace hushmeadows
