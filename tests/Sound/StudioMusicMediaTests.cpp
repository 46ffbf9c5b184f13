#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "SceneCore/Sound/MusicSelection.h"
#include "SceneCore/Sound/StudioMusic.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using Json = nlohmann::json;

class StudioMusicTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    FFmpegMediaProbe media;
    testing::LogCapture log;
    fs::path worlds = dir / "Worlds";
    fs::path overlay = dir / "StudioMusic" / "meadow";
    // 0.25 s at 48 kHz.
    const fs::path& track = testing::audio({.container = "flac"});

    void writeManifest(const Json& manifest) { testing::writeText(overlay / "studio.json", manifest.dump()); }

    Json manifest(Json tracks) { return Json{{"formatVersion", 1}, {"world", "meadow"}, {"style", "studio"}, {"tracks", std::move(tracks)}}; }

    std::optional<StudioMusic> load() { return StudioMusic::load("meadow", worlds, media); }

    std::vector<std::string> audioLines() const { return log.lines("audio"); }
};

TEST_F(StudioMusicTest, EachRefusalSaysWhy)
{
    testing::copyFile(track, overlay / "main.flac");
    testing::copyFile(track, dir / "outside.flac");
    const std::string unreadable = "studio.json is unreadable; using Classic";
    const std::string mismatched = "studio.json doesn't match this world or format; using Classic";
    const std::string badTrack = "the main track is missing, unreadable or not the expected file";
    auto with = [this](const std::string& key, Json value) { auto m = manifest({{"main", {{"file", "main.flac"}}}}); m[key] = value; return m.dump(); };
    for (auto [text, why] : std::vector<std::pair<std::string, std::string>>{
             {std::string(1'048'577, ' '), unreadable},
             {"{ nope", unreadable},
             {with("formatVersion", 2), mismatched},
             {with("world", "lake"), mismatched},
             {with("style", "classic"), mismatched},
             {manifest({{"main", {{"file", "main.flac"}, {"frames", 12001}}}}).dump(), badTrack},
             {manifest({{"main", {{"file", "gone.flac"}}}}).dump(), badTrack},
             {manifest({{"main", {{"file", "../../outside.flac"}}}}).dump(), badTrack}}) {
        log.clear();
        testing::writeText(overlay / "studio.json", text);
        EXPECT_FALSE(load()) << text.substr(0, 80);
        EXPECT_THAT(audioLines(), ElementsAre("Studio music for meadow: " + why)) << text.substr(0, 80);
    }
}

TEST_F(StudioMusicTest, AWorldFolderLinkedOutsideTheOverlayIsRefused)
{
    auto elsewhere = dir / "elsewhere";
    testing::copyFile(track, elsewhere / "main.flac");
    testing::writeText(elsewhere / "studio.json", manifest({{"main", {{"file", "main.flac"}}}}).dump());
    fs::create_directories(dir / "StudioMusic");
    fs::create_directory_symlink(elsewhere, overlay);
    EXPECT_FALSE(load());
    EXPECT_THAT(audioLines(), ElementsAre("Studio music for meadow: its folder links outside the overlay; using Classic"));
}

WorldPackage worldWithMusic(const fs::path& root, std::optional<WorldManifest::Track> music, std::optional<DayPhase> timeOfDay = std::nullopt)
{
    WorldManifest m;
    m.id = "meadow";
    m.name = "Meadow";
    m.visual.file = "loop.mp4";
    m.audio.music = std::move(music);
    m.timeOfDay = timeOfDay;
    return WorldPackage(root, m, {});
}

TEST_F(StudioMusicTest, AGoodOverlayGivesTracksByPhaseAndSelectionPrefersTheStyleThenWhateverExists)
{
    testing::copyFile(track, overlay / "day.flac");
    testing::copyFile(track, overlay / "main.flac");
    writeManifest(manifest({{"day", {{"file", "day.flac"}, {"frames", 12000}, {"entryPoints", {{{"frame", 0}}, {{"frame", 6000}}, {{"frame", 99999}}}}}},
                            {"main", {{"file", "main.flac"}}}}));
    auto studio = load();
    ASSERT_TRUE(studio);
    EXPECT_TRUE(audioLines().empty());
    EXPECT_EQ(studio->entryPoints.at(*studio->url(DayPhase::day)), (std::vector<std::int64_t>{0, 6000})) << "past the end is dropped";
    EXPECT_EQ(studio->url(std::nullopt)->filename(), "main.flac");
    EXPECT_EQ(StudioMusic::overlayRoot(worlds), dir / "StudioMusic");
    auto root = worlds / "meadow.hushmeadow";
    auto classic = worldWithMusic(root, WorldManifest::Track{"music.flac", 0.5, std::nullopt});

    using S = MusicSelection;
    EXPECT_EQ(S::choose(classic, MusicStyle::studio, studio, DayPhase::day), (S::Choice{*studio->url(DayPhase::day), MusicStyle::studio}));
    EXPECT_EQ(S::choose(classic, MusicStyle::studio, std::nullopt, DayPhase::day), (S::Choice{root / "music.flac", MusicStyle::classic}));
    EXPECT_EQ(S::choose(classic, MusicStyle::classic, studio, DayPhase::day), (S::Choice{root / "music.flac", MusicStyle::classic}));

    auto silent = worldWithMusic(root, std::nullopt);
    EXPECT_EQ(S::choose(silent, MusicStyle::classic, studio, DayPhase::night), (S::Choice{*studio->url(DayPhase::night), MusicStyle::studio}));
    EXPECT_EQ(S::choose(silent, MusicStyle::classic, std::nullopt, DayPhase::night), std::nullopt);

    // A world's own studio-style track wins over the overlay, and is still
    // the only music when classic is preferred.
    auto ownStudio = worldWithMusic(root, WorldManifest::Track{"own.flac", 0.5, MusicStyle(MusicStyle::studio)});
    EXPECT_EQ(S::choose(ownStudio, MusicStyle::studio, studio, DayPhase::day), (S::Choice{root / "own.flac", MusicStyle::studio}));
    EXPECT_EQ(S::choose(ownStudio, MusicStyle::classic, studio, DayPhase::day), (S::Choice{root / "own.flac", MusicStyle::studio}));

    // The phase the package depicts decides over the clock's.
    auto nightVersion = worldWithMusic(root, std::nullopt, DayPhase::night);
    EXPECT_EQ(S::choose(nightVersion, MusicStyle::studio, studio, DayPhase::day)->url.filename(), "main.flac");
}

} // namespace
} // namespace hushmeadows
