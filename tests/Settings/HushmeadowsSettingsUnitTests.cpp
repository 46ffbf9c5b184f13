#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Settings/HushmeadowsSettings.h"
#include "SceneCore/Worlds/WorldManifest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace hushmeadows {
namespace {

using Json = nlohmann::json;
using namespace std::chrono_literals;

// Every field away from its default, so a field that is dropped or mixed up
// anywhere shows.
HushmeadowsSettings everyFieldSet()
{
    return HushmeadowsSettings::make(0.25, 0.75, true, true, true, false, LaunchBehavior::enterAmbientMode, false,
                                     Framing::wholeScene, false, "calm-lake",
                                     {{"calm-lake", WorldMix{0.4, std::nullopt}}, {"night-rain", WorldMix{std::nullopt, 0.9}}},
                                     {"night-rain", "calm-lake"}, TimeOfDay::night, SleepTimer::after30Minutes, true, 42, true,
                                     LibraryTab::voxel, MusicStyle::classic, MusicStyle::classic);
}

HushmeadowsSettings decoded(const Json& json) { return HushmeadowsSettings::decode(json.dump()); }

TEST(HushmeadowsSettings, VolumesAreKeptWithinZeroToOne)
{
    EXPECT_EQ(decoded({{"musicVolume", 1.7}}).musicVolume, 1.0);
    EXPECT_EQ(decoded({{"musicVolume", -0.2}}).musicVolume, 0.0);
    EXPECT_EQ(decoded({{"ambienceVolume", 0.35}}).ambienceVolume, 0.35);
    EXPECT_EQ(decoded({{"ambienceVolume", 3}}).ambienceVolume, 1.0);
    EXPECT_FALSE(decoded({{"musicVolume", true}}).musicVolume);

    auto mixes = decoded({{"worldMixes", {{"a", {{"music", 2.5}, {"ambience", -1}}}}}}).worldMixes;
    EXPECT_EQ(mixes.at("a"), (WorldMix{1.0, 0.0}));

    // Not a number or infinite, from any caller: silent, never NaN.
    auto made = HushmeadowsSettings::defaultSettings();
    made.musicVolume = std::numeric_limits<double>::quiet_NaN();
    made.ambienceVolume = std::numeric_limits<double>::infinity();
    EXPECT_EQ(made.normalized().musicVolume, 0.0);
    EXPECT_EQ(made.normalized().ambienceVolume, 0.0);
}

TEST(HushmeadowsSettings, FavouritesKeepTheirFirstOccurrences)
{
    EXPECT_EQ(decoded({{"favouriteWorldIDs", {"a", "b", "a"}}}).favouriteWorldIDs, (std::vector<std::string>{"a", "b"}));
    // An element that is not text costs only itself.
    EXPECT_EQ(decoded({{"favouriteWorldIDs", Json::parse(R"(["c", 3, null, "a", "c"])")}}).favouriteWorldIDs,
              (std::vector<std::string>{"c", "a"}));
    auto made = everyFieldSet();
    made.favouriteWorldIDs = {"x", "y", "x", "y", "z"};
    EXPECT_EQ(made.normalized().favouriteWorldIDs, (std::vector<std::string>{"x", "y", "z"}));
}

TEST(HushmeadowsSettings, EachKeyFailsAloneAndOthersAreKept)
{
    const auto full = everyFieldSet().toJson();
    const auto defaults = HushmeadowsSettings::defaultSettings().toJson();
    ASSERT_EQ(full.size(), 21u);
    // An object holding a Boolean is the wrong shape for every key (for
    // worldMixes its one entry is not a mix, which leaves the map empty).
    for (const Json& wrong : {Json{{"nested", true}}, Json(nullptr)}) {
        for (const auto& [key, value] : full.items()) {
            Json file = Json::parse(full.dump());
            file[key] = wrong;
            auto expected = full;
            expected[key] = defaults[key];
            EXPECT_EQ(decoded(file).toJson(), expected) << key << " = " << wrong.dump();
        }
    }

    Json file = Json::parse(full.dump());
    file["framing"] = "stretch";
    file["someFutureKey"] = {1, 2};
    auto expected = everyFieldSet();
    expected.framing = Framing::fill;
    EXPECT_EQ(decoded(file), expected);
}

TEST(HushmeadowsSettings, ABadWorldMixEntryCostsOnlyItself)
{
    auto mixes = decoded({{"worldMixes", {{"a", 0.5}, {"b", {{"music", "x"}, {"ambience", 0.25}}}, {"c", Json::object()}}}}).worldMixes;
    EXPECT_EQ(mixes.size(), 2u);
    EXPECT_EQ(mixes.at("b"), (WorldMix{std::nullopt, 0.25}));
    EXPECT_EQ(mixes.at("c"), (WorldMix{}));
}

TEST(HushmeadowsSettings, OnlyANonObjectTopLevelFails)
{
    std::string deep = "{\"worldMixes\": " + std::string(70'000, '[') + std::string(70'000, ']') + "}";
    std::string trailingNul("{}\0{\"musicVolume\": 1}", 21);
    for (std::string text : {std::string(""), std::string("[]"), std::string("[{}]"), std::string("3"), std::string("\"{}\""), std::string("null"),
                             std::string("{"), std::string("{} {}"), std::string("{\"a\":}"), deep, trailingNul})
        EXPECT_THROW(HushmeadowsSettings::decode(text), DecodingError) << text;
    EXPECT_NO_THROW(HushmeadowsSettings::decode(" {\"musicVolume\": {}} "));
}

// Night is an hour below 7 or above 18 on the calendar's clock, unless chosen.
TEST(HushmeadowsSettings, TimeOfDayPhaseFollowsTheCalendarsHour)
{
    const auto midnight = std::chrono::sys_days{std::chrono::year{2026} / 3 / 1};
    const struct {
        TimeOfDay setting;
        std::chrono::minutes utc;
        std::chrono::hours offset;
        DayPhase phase;
    } cases[] = {
        {TimeOfDay::automatic, 6h + 59min, 0h, DayPhase::night},
        {TimeOfDay::automatic, 7h, 0h, DayPhase::day},
        {TimeOfDay::automatic, 18h + 59min, 0h, DayPhase::day},
        {TimeOfDay::automatic, 19h, 0h, DayPhase::night},
        {TimeOfDay::automatic, 17h, 2h, DayPhase::night},        // 19:00 two hours east
        {TimeOfDay::automatic, 6h + 30min, 2h, DayPhase::day},    // 08:30 two hours east
        {TimeOfDay::automatic, 6h + 30min, -7h, DayPhase::night}, // 23:30 the evening before
        {TimeOfDay::day, 2h, 0h, DayPhase::day},
        {TimeOfDay::night, 12h, 0h, DayPhase::night},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.setting.phase(midnight + c.utc, Calendar::fixedOffset(c.offset)), c.phase) << c.utc.count() << " min, " << c.offset.count() << " h";
}

WorldManifest worldWith(std::optional<double> music, std::optional<double> ambience)
{
    WorldManifest world;
    world.id = "calm-lake";
    if (music)
        world.audio.music = WorldManifest::Track{"music.m4a", *music, std::nullopt};
    if (ambience)
        world.audio.ambience = WorldManifest::Track{"ambience.m4a", *ambience, std::nullopt};
    return world;
}

TEST(HushmeadowsSettings, LevelIsTheWorldsOwnElseGlobalElseBuiltIn)
{
    HushmeadowsSettings s;
    auto world = worldWith(0.3, 0.6);
    EXPECT_EQ(s.musicLevel(world), 0.3);
    EXPECT_EQ(s.ambienceLevel(world), 0.6);
    EXPECT_EQ(s.musicLevel(worldWith(std::nullopt, std::nullopt)), HushmeadowsSettings::fallbackMusicLevel);
    EXPECT_EQ(s.ambienceLevel(worldWith(std::nullopt, std::nullopt)), HushmeadowsSettings::fallbackAmbienceLevel);

    s.setMusicLevel(0.8);
    EXPECT_EQ(s.musicLevel(world), 0.8);
    EXPECT_EQ(s.ambienceLevel(world), 0.6);

    // A world's own level replaces the global one, above or below it.
    s.setMusicLevel(0.95, "calm-lake");
    s.setAmbienceLevel(0.1, "calm-lake");
    EXPECT_EQ(s.musicLevel(world), 0.95);
    EXPECT_EQ(s.ambienceLevel(world), 0.1);
    EXPECT_EQ(s.musicLevel("other", 0.3), 0.8);
    EXPECT_EQ(s.ambienceLevel("other", 0.3), 0.3);
    EXPECT_EQ(s.musicLevel("other", 1.5), 0.8);
    EXPECT_EQ(s.ambienceLevel("other", 1.5), 1.0);
}

} // namespace
} // namespace hushmeadows
