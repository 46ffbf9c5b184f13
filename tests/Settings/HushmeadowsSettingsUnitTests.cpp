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

// Values out of range are brought in, and a malformed element costs only itself.
TEST(HushmeadowsSettings, DecodingKeepsWhatItCanWithinRange)
{
    const std::pair<Json, Json> cases[] = { // one key in the file, that key as the settings hold it
        {{{"musicVolume", 1.7}}, 1.0},
        {{{"musicVolume", -0.2}}, 0.0},
        {{{"ambienceVolume", 0.35}}, 0.35},
        {{{"ambienceVolume", 3}}, 1.0},
        {{{"musicVolume", true}}, nullptr}, // a Boolean is no number
        {{{"worldMixes", {{"a", {{"music", 2.5}, {"ambience", -1}}}}}}, {{"a", {{"music", 1.0}, {"ambience", 0.0}}}}},
        {{{"worldMixes", {{"a", 0.5}, {"b", {{"music", "x"}, {"ambience", 0.25}}}, {"c", Json::object()}}}},
         {{"b", {{"music", nullptr}, {"ambience", 0.25}}}, {"c", {{"music", nullptr}, {"ambience", nullptr}}}}},
        {{{"favouriteWorldIDs", {"a", "b", "a"}}}, {"a", "b"}},
        {{{"favouriteWorldIDs", Json::parse(R"(["c", 3, null, "a", "c"])")}}, {"c", "a"}},
    };
    for (const auto& [file, expected] : cases) {
        const std::string key = file.begin().key();
        EXPECT_EQ(Json::parse(decoded(file).toJson()[key].dump()), expected) << file.dump();
    }

    // Whoever made them, settings hold no NaN, infinity or repeated favourite.
    auto made = everyFieldSet();
    made.musicVolume = std::numeric_limits<double>::quiet_NaN();
    made.ambienceVolume = std::numeric_limits<double>::infinity();
    made.favouriteWorldIDs = {"x", "y", "x", "y", "z"};
    EXPECT_EQ(made.normalized().musicVolume, 0.0);
    EXPECT_EQ(made.normalized().ambienceVolume, 0.0);
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

TEST(HushmeadowsSettings, OnlyANonObjectTopLevelFails)
{
    std::string deep = "{\"worldMixes\": " + std::string(70'000, '[') + std::string(70'000, ']') + "}";
    std::string trailingNul("{}\0{\"musicVolume\": 1}", 21);
    for (std::string text : {std::string(""), std::string("[]"), std::string("[{}]"), std::string("3"), std::string("\"{}\""), std::string("null"),
                             std::string("{"), std::string("{} {}"), std::string("{\"a\":}"), deep, trailingNul})
        EXPECT_THROW(HushmeadowsSettings::decode(text), DecodingError) << text;
    EXPECT_NO_THROW(HushmeadowsSettings::decode(" {\"musicVolume\": {}} "));
}

TEST(HushmeadowsSettings, TimeOfDayPhase)
{
    const auto midnight = std::chrono::sys_days{std::chrono::year{2026} / 3 / 1};
    // The hour is the calendar's: 17:00 UTC is 19:00 two hours east, and
    // 06:30 is 23:30 the evening before seven hours west.
    const std::tuple<TimeOfDay, std::chrono::minutes, std::chrono::hours, DayPhase> cases[] = {
        {TimeOfDay::automatic, 6h + 59min, 0h, DayPhase::night}, {TimeOfDay::automatic, 7h, 0h, DayPhase::day},
        {TimeOfDay::automatic, 18h + 59min, 0h, DayPhase::day}, {TimeOfDay::automatic, 19h, 0h, DayPhase::night},
        {TimeOfDay::automatic, 17h, 2h, DayPhase::night}, {TimeOfDay::automatic, 6h + 30min, -7h, DayPhase::night},
        {TimeOfDay::day, 2h, 0h, DayPhase::day}, {TimeOfDay::night, 12h, 0h, DayPhase::night},
    };
    for (const auto& [mode, at, offset, phase] : cases)
        EXPECT_EQ(mode.phase(midnight + at, Calendar::fixedOffset(offset)), phase) << at.count() << " min at " << offset.count() << " h";
}

TEST(HushmeadowsSettings, LevelIsTheWorldsOwnElseGlobalElseBuiltIn)
{
    HushmeadowsSettings s;
    WorldManifest world;
    world.id = "calm-lake";
    EXPECT_EQ(s.musicLevel(world), HushmeadowsSettings::fallbackMusicLevel);
    EXPECT_EQ(s.ambienceLevel(world), HushmeadowsSettings::fallbackAmbienceLevel);
    world.audio.music = WorldManifest::Track{"music.m4a", 0.3, std::nullopt};
    world.audio.ambience = WorldManifest::Track{"ambience.m4a", 0.6, std::nullopt};
    EXPECT_EQ(s.musicLevel(world), 0.3);
    EXPECT_EQ(s.ambienceLevel(world), 0.6);

    s.setMusicLevel(0.8);
    EXPECT_EQ(s.musicLevel(world), 0.8);
    EXPECT_EQ(s.ambienceLevel(world), 0.6);

    // A world's own level replaces the global one, above or below it.
    s.setMusicLevel(0.95, "calm-lake");
    s.setAmbienceLevel(0.1, "calm-lake");
    EXPECT_EQ(s.musicLevel(world), 0.95);
    EXPECT_EQ(s.ambienceLevel(world), 0.1);
    EXPECT_EQ(s.musicLevel("other", 1.5), 0.8);
    EXPECT_EQ(s.ambienceLevel("other", 0.3), 0.3);
    EXPECT_EQ(s.ambienceLevel("other", 1.5), 1.0);
}

} // namespace
} // namespace hushmeadows
