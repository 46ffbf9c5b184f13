#include "SceneCore/Worlds/WorldManifest.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace hushmeadows {
namespace {

using Json = nlohmann::json;

Json minimal()
{
    return Json{{"formatVersion", 1}, {"id", "calm-lake"}, {"name", "Calm Lake"}, {"visual", {{"file", "loop.mp4"}}}};
}

WorldManifest decoded(const Json& json) { return WorldManifest::decode(json.dump()); }

// The reason text a package failure would carry for this JSON.
std::string reasonFor(std::string_view text)
{
    try {
        WorldManifest::decode(text);
    } catch (const DecodingError& error) {
        return WorldPackage::describe(error);
    }
    return "decoded";
}

TEST(WorldManifest, StrictKeysFailTheWholeFileWithTheirPath)
{
    auto nested = [](int depth) { return Json::parse(std::string(depth, '[') + std::string(depth, ']')); };
    // Each patch is merged into the minimal manifest (null removes a key).
    const std::pair<Json, std::string> cases[] = {
        {{{"visual", {{"scaling", "stretch"}}}}, "invalid value at 'visual.scaling'"},
        {{{"tags", "calm"}}, "wrong type at 'tags'"},
        {{{"visual", nullptr}}, "missing key 'visual'"},
        {{{"visual", {{"file", 42}}}}, "wrong type at 'visual.file'"},
        {{{"audio", {{"music", {{"file", "m.flac"}}}}}}, "missing key 'audio.music.defaultVolume'"},
        {{{"visual", {{"pixelArt", 1}}}}, "wrong type at 'visual.pixelArt'"}, // a number is not a Boolean
        {{{"tags", {"a", 3}}}, "wrong type at 'tags.Index 1'"},
        {{{"formatVersion", 1.5}}, "invalid value at 'formatVersion'"},
        {{{"name", nested(62)}}, "wrong type at 'name'"},
        {{{"name", nested(64)}}, "not valid JSON"}, // nesting is bounded
    };
    for (const auto& [patch, reason] : cases) {
        auto j = minimal();
        j.merge_patch(patch);
        EXPECT_EQ(reasonFor(j.dump()), reason) << patch.dump().substr(0, 80);
    }
    for (std::string text : {std::string("{\"formatVersion\": 1,"), std::string(""), std::string("\xff\xfe{}"),
                             minimal().dump() + std::string("\0garbage", 8)}) // a NUL does not end the text early
        EXPECT_EQ(reasonFor(text), "not valid JSON");
    EXPECT_EQ(reasonFor("[]"), "wrong type at ''");
}

TEST(WorldManifest, TolerantKeysFallBackToTheirDefaults)
{
    auto j = minimal();
    j["kind"] = "sculpture";
    j["timeOfDay"] = "Night";
    j["theme"] = {{"style", "castle"}, {"appearance", "dark"}, {"colors", Json::object()}};
    j["visual"]["variations"] = "b.mp4";
    j["visual"]["protectsSafeArea"] = "yes";
    j["visual"]["matte"] = 12;
    j["audio"] = {{"music", {{"file", "m.flac"}, {"defaultVolume", 0.5}, {"style", "jazz"}}}};
    j["unknown"] = {{"deeply", {1, 2, 3}}};
    auto m = decoded(j);
    EXPECT_EQ(m.kind, WorldKind::pixel);
    EXPECT_FALSE(m.timeOfDay);
    EXPECT_FALSE(m.theme);
    EXPECT_TRUE(m.visual.variations.empty());
    EXPECT_FALSE(m.visual.protectsSafeArea);
    EXPECT_FALSE(m.visual.matte);
    ASSERT_TRUE(m.audio.music);
    EXPECT_FALSE(m.audio.music->style);
    EXPECT_DOUBLE_EQ(m.audio.music->defaultVolume, 0.5);
    j["theme"] = {{"style", "city"}, {"colors", Json::object()}}; // no appearance
    EXPECT_FALSE(decoded(j).theme);
}

TEST(WorldManifest, VersionsKeepOnlyDayPhaseKeysOverrideOnlyWhatTheyHaveAndFailAsAWhole)
{
    auto j = minimal();
    j["timeOfDay"] = "day";
    j["subtitle"] = "Base";
    j["tags"] = {"base"};
    j["audio"] = {{"music", {{"file", "m.flac"}, {"defaultVolume", 0.4}}}};
    // Tolerant fields inside a version do not fail it.
    j["versions"] = {{"night", {{"visual", {{"file", "night.mp4"}}}, {"tags", {"dark"}}, {"theme", 3}}},
                     {"dusk", {{"visual", {{"file", "dusk.mp4"}}}}}, {"Night", {{"visual", {{"file", "n.mp4"}}}}}};
    auto m = decoded(j);
    ASSERT_EQ(m.versions.size(), 1u);
    auto night = m.applyingVersion(DayPhase::night);
    EXPECT_EQ(night.visual.file, "night.mp4");
    EXPECT_EQ(night.audio, m.audio);
    EXPECT_EQ(night.subtitle, m.subtitle);
    EXPECT_EQ(night.tags, std::vector<std::string>{"dark"});
    EXPECT_FALSE(m.versions.at(DayPhase::night).theme);
    EXPECT_EQ(night.timeOfDay, DayPhase::night);
    EXPECT_EQ(night.versions, m.versions);
    EXPECT_EQ(m.applyingVersion(DayPhase::day), m);
    m.timeOfDay.reset(); // without a depicted phase, versions are never used
    EXPECT_EQ(m.applyingVersion(DayPhase::night), m);

    j["versions"]["dusk"] = {{"audio", Json::object()}}; // lacks visual
    EXPECT_TRUE(decoded(j).versions.empty());
}

TEST(WorldManifest, EncodesAndDecodesBackToAnEqualValue)
{
    auto j = minimal();
    j["subtitle"] = "Early mist";
    j["tags"] = {"water", "calm"};
    j["visual"]["poster"] = "poster.png";
    j["visual"]["scaling"] = "aspectFit";
    j["visual"]["focus"] = {{"x", 0.25}, {"y", 1.0}};
    j["visual"]["matte"] = "auto";
    j["audio"] = {{"ambience", {{"file", "a.wav"}, {"defaultVolume", 0.7}}}, {"music", {{"file", "m.flac"}, {"defaultVolume", 0.4}, {"style", "studio"}}}};
    j["theme"] = {{"style", "greenhouse"}, {"appearance", "light"}, {"colors", {{"ink", "#000000"}}}, {"material", "villa"}};
    j["timeOfDay"] = "night";
    j["versions"] = {{"day", {{"visual", {{"file", "day.mp4"}}}, {"subtitle", "Noon"}}}};
    j["kind"] = "voxel";
    auto m = decoded(j);
    EXPECT_EQ(WorldManifest::decode(m.encode()), m);
    EXPECT_EQ(m.theme->knownMaterial(), WorldTheme::Material::villa);
    m.theme->material = "Villa";
    EXPECT_FALSE(m.theme->knownMaterial());
    EXPECT_EQ(m.kind, WorldKind::voxel);
}

} // namespace
} // namespace hushmeadows
