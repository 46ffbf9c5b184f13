#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Linux/FFmpegVideoFile.h"
#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Picture/LoopingVideoSource.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Worlds/WorldCatalog.h"
#include "SceneCore/Worlds/WorldPackage.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"
#include "tests/support/PackageWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using testing::PackageWriter;
using Json = nlohmann::json;

class WorldPackageTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { PosixFileAccess::install(); }
    static void TearDownTestSuite() { FileAccess::install(nullptr); }

    testing::TempDir dir;
    FFmpegMediaProbe media;

    std::expected<WorldPackage, WorldPackageError> load(const Json& manifest, const PackageWriter::Media& files = {{"loop.mp4", testing::video()}})
    {
        auto folder = PackageWriter::write(dir.path(), "calm.hushmeadow", manifest, files);
        return WorldPackage::contentsOf(folder, media);
    }

    std::string failure(const Json& manifest, const PackageWriter::Media& files = {{"loop.mp4", testing::video()}})
    {
        auto result = load(manifest, files);
        return result ? std::string("loaded") : result.error().description();
    }
};

// A manifest is read only when it is a regular file within 1 MB: a pipe is
// not waited on, a link to a device is not read.
TEST_F(WorldPackageTest, FolderAndManifestFailures)
{
    std::string text = PackageWriter::minimalManifest("calm").dump();
    auto padded = [&](std::size_t size) { return text + std::string(size - text.size(), ' '); };
    testing::writeText(dir / "plain.hushmeadow", "not a folder");
    fs::create_directories(dir / "empty.hushmeadow");
    testing::writeText(dir / "broken.hushmeadow/world.json", "{ not json");
    testing::writeText(dir / "over.hushmeadow/world.json", padded(1'048'577));
    testing::writeText(dir / "limit.hushmeadow/world.json", padded(1'048'576));
    testing::copyFile(testing::video(), dir / "limit.hushmeadow/loop.mp4");
    fs::create_directories(dir / "folder.hushmeadow/world.json");
    fs::create_directories(dir / "zero.hushmeadow");
    fs::create_symlink("/dev/zero", dir / "zero.hushmeadow/world.json");
    fs::create_directories(dir / "pipe.hushmeadow");
    ASSERT_EQ(::mkfifo((dir / "pipe.hushmeadow/world.json").c_str(), 0600), 0);

    const std::string unreadable = ".hushmeadow is invalid: world.json is missing, unreadable or larger than 1 MB";
    const std::pair<std::string, std::string> cases[] = {
        {"plain", "plain.hushmeadow is not a world package directory"}, {"empty", "No world.json in empty.hushmeadow"},
        {"broken", "world.json in broken.hushmeadow is invalid: not valid JSON"}, {"limit", "loaded"},
        {"over", "world.json in over" + unreadable}, {"folder", "world.json in folder" + unreadable},
        {"zero", "world.json in zero" + unreadable}, {"pipe", "world.json in pipe" + unreadable},
    };
    for (const auto& [name, expected] : cases) {
        auto package = WorldPackage::contentsOf(dir / (name + ".hushmeadow"), media);
        EXPECT_EQ(package ? std::string("loaded") : package.error().description(), expected) << name;
    }
    // The catalogue beside the worlds is read by the same rule.
    for (const fs::path& folder : {dir / "pipe.hushmeadow", dir / "zero.hushmeadow"}) {
        fs::rename(folder / "world.json", folder / WorldCatalog::fileName);
        EXPECT_FALSE(WorldCatalog::load(folder)) << folder;
    }
}

// Each case changes the minimal manifest of "calm" by a JSON merge patch.
TEST_F(WorldPackageTest, ValidationOrderAndMessages)
{
    const std::string badId = "Invalid value for id: use lowercase letters, digits and hyphens";
    std::vector<std::pair<Json, std::string>> cases{
        {{{"formatVersion", 2}, {"id", "Bad Id"}}, "World format version 2 is not supported by this version of Hushmeadows"},
        {{{"name", "   "}}, "Invalid value for name: must not be empty"},
        {{{"name", "\xE3\x80\x80\t"}}, "Invalid value for name: must not be empty"}, // an ideographic space and a tab
        {{{"visual", {{"focus", {{"x", 1.0}, {"y", 0.0}}}, {"safeArea", {{"width", 0.1}, {"height", 1.0}}}}}}, "loaded"},
        {{{"visual", {{"focus", {{"x", 1.01}, {"y", 0.5}}}}}}, "Invalid value for visual.focus: coordinates must be within 0...1"},
        {{{"visual", {{"safeArea", {{"width", 0.09}, {"height", 0.5}}}}}}, "Invalid value for visual.safeArea: fractions must be within 0.1...1"},
    };
    for (const char* id : {"calm-lake", "9lives", "a"})
        cases.push_back({{{"id", id}}, "loaded"});
    for (const char* id : {"-calm", "Calm", "calm_lake", "calm lake", "", " calm", "   ", "calm\n\n"})
        cases.push_back({{{"id", id}}, badId});
    for (const auto& [patch, expected] : cases) {
        auto m = PackageWriter::minimalManifest("calm");
        m.merge_patch(patch);
        EXPECT_EQ(failure(m), expected) << patch;
    }
}

TEST_F(WorldPackageTest, ResourcePathsStayInsideThePackage)
{
    auto withVideo = [](const std::string& file) {
        auto m = PackageWriter::minimalManifest("calm");
        m["visual"]["file"] = file;
        return m;
    };
    for (const std::string& bad : std::initializer_list<std::string>{"../loop.mp4", "clips/../../loop.mp4", "/etc/passwd", "", std::string("loop.mp4\0/../../outside", 24)})
        EXPECT_EQ(failure(withVideo(bad)), "Invalid value for visual.file: must be a relative path inside the package") << bad;
    EXPECT_EQ(failure(withVideo("clips//loop.mp4"), {{"clips/loop.mp4", testing::video()}}), "loaded");
    EXPECT_EQ(failure(withVideo("./loop.mp4")), "loaded");
    EXPECT_EQ(failure(withVideo("gone.mp4")), "Missing resource for visual.file: gone.mp4");
    EXPECT_EQ(failure(withVideo("clips"), {{"clips/x.mp4", testing::video()}}), "Missing resource for visual.file: clips");

    // A link that leaves the folder is caught after resolving; one that stays inside is fine.
    testing::copyFile(testing::video(), dir / "outside.mp4");
    auto folder = PackageWriter::write(dir.path(), "linked.hushmeadow", withVideo("loop.mp4"), {});
    fs::create_symlink(dir / "outside.mp4", folder / "loop.mp4");
    auto linked = WorldPackage::contentsOf(folder, media);
    EXPECT_EQ(linked ? "loaded" : linked.error().description(), "visual.file (loop.mp4) resolves outside the world package");

    auto inside = PackageWriter::write(dir.path(), "inside.hushmeadow", withVideo("loop.mp4"), {{"media/real.mp4", testing::video()}});
    fs::create_symlink("media/real.mp4", inside / "loop.mp4");
    EXPECT_TRUE(WorldPackage::contentsOf(inside, media));

    EXPECT_EQ(WorldPackage::requireResource("visual.file", "loop.mp4", inside).value().filename(), "real.mp4");
}

// A poster is judged by its header (a bomb is refused before any pixel is
// decoded), a sound by its format and length.
TEST_F(WorldPackageTest, MediaChecksOfPosterAndSound)
{
    testing::TempDir scratch;
    testing::writeText(scratch / "zero", "");
    testing::writeText(scratch / "text", "this is neither a picture nor a sound");
    auto poster = PackageWriter::minimalManifest("calm");
    poster["visual"]["poster"] = "poster.png";
    auto ambience = PackageWriter::minimalManifest("calm");
    ambience["audio"] = {{"ambience", {{"file", "wind.flac"}, {"defaultVolume", 0.7}}}};
    const std::tuple<const Json&, std::string, fs::path, std::string> cases[] = {
        {poster, "poster.png", testing::poster(), "loaded"},
        {poster, "poster.png", scratch / "zero", "visual.poster (poster.png) is empty"},
        {poster, "poster.png", scratch / "text", "visual.poster (poster.png) can't be decoded: not a readable image"},
        {poster, "poster.png", testing::hugePNG(),
         "visual.poster (poster.png) can't be decoded: the picture is 16000×16000, too large: over 72 MiB once decoded"},
        {ambience, "wind.flac", testing::audio({.container = "flac"}), "loaded"},
        {ambience, "wind.flac", scratch / "text", "audio.ambience.file (wind.flac) can't be decoded: not a readable audio file"},
        {ambience, "wind.flac", testing::emptyWav(), "audio.ambience.file (wind.flac) can't be decoded: contains no audio"},
    };
    for (const auto& [manifest, name, file, expected] : cases)
        EXPECT_EQ(failure(manifest, {{"loop.mp4", testing::video()}, {name, file}}), expected) << file;

    auto m = PackageWriter::minimalManifest("calm");
    m["audio"] = {{"music", {{"file", "missing.flac"}, {"defaultVolume", 1.5}}}};
    EXPECT_EQ(failure(m), "Invalid value for audio.music.defaultVolume: must be within 0...1");
    m["audio"]["music"]["defaultVolume"] = 0.5;
    EXPECT_EQ(failure(m), "Missing resource for audio.music.file: missing.flac");
}

// What each of a loaded package's media opens as now, the way playback opens
// them (the video on every loop and variation, the poster, music and
// ambience): a size or length, or "refused".
std::vector<std::string> openedMedia(const WorldPackage& package)
{
    std::vector<std::string> opened;
    auto video = FFmpegVideoFile::open(package.visualURL());
    opened.push_back(video ? std::to_string((*video)->pixelSize().width) + "x" + std::to_string((*video)->pixelSize().height) : "refused");
    auto poster = FFmpegImageDecoder().decode(*package.posterURL(), PixelFormat::bgra8);
    opened.push_back(poster ? std::to_string(poster->width) + "x" + std::to_string(poster->height) : "refused");
    for (const auto& sound : {package.musicURL(), package.ambienceURL()}) {
        auto audio = FFmpegAudioFile::open(*sound, 48000);
        opened.push_back(audio ? std::to_string((*audio)->length()) + " frames" : "refused");
    }
    return opened;
}

// The rule that a package's media lie inside it holds on every open, not only
// when it loads: a file swapped for a link out, or the whole folder swapped
// for a link elsewhere, never opens what lies outside: it is refused.
TEST_F(WorldPackageTest, MediaSwappedAfterLoadingStayInsideThePackage)
{
    auto m = PackageWriter::minimalManifest("calm");
    m["visual"]["poster"] = "poster.png";
    m["audio"] = {{"music", {{"file", "music.wav"}, {"defaultVolume", 0.5}}}, {"ambience", {{"file", "rain.wav"}, {"defaultVolume", 0.5}}}};
    const std::vector<std::string> names{"loop.mp4", "poster.png", "music.wav", "rain.wav"};
    const PackageWriter::Media own{{"loop.mp4", testing::video()}, {"poster.png", testing::poster(16, 9)},
                                   {"music.wav", testing::audio()}, {"rain.wav", testing::audio()}};
    const std::vector<std::string> ownMedia{"32x18", "16x9", "12000 frames", "12000 frames"};
    // Other media, told apart by their sizes, outside the package and inside it.
    const std::vector<fs::path> other{testing::video({.width = 48, .height = 28}), testing::poster(20, 10),
                                      testing::audio({.seconds = 0.5}), testing::audio({.seconds = 0.5})};
    const std::vector<std::string> otherMedia{"48x28", "20x10", "24000 frames", "24000 frames"};
    const std::vector<std::string> refused(4, "refused");
    auto elsewhere = PackageWriter::write(dir.path(), "elsewhere", m, {});
    for (std::size_t i = 0; i < names.size(); ++i)
        testing::copyFile(other[i], elsewhere / names[i]);

    struct Case {
        std::string change;
        std::function<void(const fs::path& folder)> apply;
        std::vector<std::string> expected;
    };
    auto replaceEach = [&](auto makeLink) {
        return [&names, makeLink](const fs::path& folder) {
            for (const auto& name : names) {
                fs::remove(folder / name);
                fs::create_symlink(makeLink(folder, name), folder / name);
            }
        };
    };
    const std::vector<Case> cases{
        {"each file replaced by a link to a file outside",
         replaceEach([&](const fs::path&, const std::string& name) { return elsewhere / name; }), refused},
        {"the folder renamed away and a link to another folder put in its place",
         [&](const fs::path& folder) {
             fs::rename(folder, fs::path(folder).replace_extension("old"));
             fs::create_symlink(elsewhere, folder);
         },
         refused},
        {"each file replaced by a relative link to another file inside",
         [&](const fs::path& folder) {
             for (std::size_t i = 0; i < names.size(); ++i)
                 testing::copyFile(other[i], folder / "media" / names[i]);
             replaceEach([](const fs::path&, const std::string& name) { return fs::path("media") / name; })(folder);
         },
         otherMedia},
        {"nothing changed", [](const fs::path&) {}, ownMedia},
    };
    int index = 0;
    for (const auto& c : cases) {
        auto folder = PackageWriter::write(dir.path(), "calm-" + std::to_string(++index) + ".hushmeadow", m, own);
        auto package = WorldPackage::contentsOf(folder, media);
        ASSERT_TRUE(package) << package.error().description();
        ASSERT_EQ(openedMedia(*package), ownMedia) << c.change;
        c.apply(folder);
        EXPECT_EQ(openedMedia(*package), c.expected) << c.change;
    }
}

// Playback opens a package's videos again for every item it plays: a video
// swapped meanwhile for a link out of the package is refused then, and logged
// as a file that cannot be played; the outside video never shows.
TEST_F(WorldPackageTest, EveryLoopOpensOnlyWhatLiesInsideThePackage)
{
    testing::LogCapture log;
    auto m = PackageWriter::minimalManifest("calm");
    m["visual"]["variations"] = {"b.mp4"};
    auto package = load(m, {{"loop.mp4", testing::video()}, {"b.mp4", testing::video()}});
    ASSERT_TRUE(package);
    ManualRunLoop loop;
    auto owned = std::make_unique<testing::ManualSerialQueue>(LoopingVideoSource::queueLabel);
    auto* queue = owned.get();
    LoopingVideoSource source(package->videoURLs(), loop, std::move(owned), &FFmpegVideoFile::open);
    auto settle = [&] {
        for (int i = 0; i < 3; ++i) {
            queue->runAll();
            loop.runPending();
        }
    };
    settle();
    ASSERT_TRUE(source.isPrepared());

    testing::copyFile(testing::video({.width = 48, .height = 28}), dir / "outside.mp4");
    for (const char* name : {"loop.mp4", "b.mp4"}) {
        fs::remove(package->rootURL() / name);
        fs::create_symlink(dir / "outside.mp4", package->rootURL() / name);
    }
    source.play();
    std::set<std::pair<int, int>> shownSizes;
    for (int frame = 0; frame < 48; ++frame) {
        settle();
        loop.advance(1.0 / 12);
        if (auto image = source.copyNewFrame(loop.mediaTime()))
            shownSizes.insert({image->width, image->height});
    }
    EXPECT_FALSE(shownSizes.contains({48, 28}));
    EXPECT_THAT(log.lines("video"), ::testing::Contains(::testing::HasSubstr(
        ".mp4 cannot be played: cannot open the file: it leads outside its world package")));
}

// A failing version or variation never fails the package: it is dropped and logged.
TEST_F(WorldPackageTest, FailingVersionsAndVariationsAreDroppedAndLogged)
{
    testing::LogCapture log;
    auto m = PackageWriter::minimalManifest("calm");
    m["timeOfDay"] = "day";
    m["versions"] = {{"night", {{"visual", {{"file", "night.mp4"}}}}}};
    m["visual"]["variations"] = {"b.mp4", "loop.mp4", "gone.mp4", "b.mp4", "../b.mp4"};
    auto package = load(m, {{"loop.mp4", testing::video()}, {"b.mp4", testing::video()}});
    ASSERT_TRUE(package);
    EXPECT_TRUE(package->manifest().versions.empty());
    EXPECT_TRUE(package->phases().empty());
    // The main video named again is dropped silently; duplicates are kept.
    const fs::path& root = package->rootURL();
    EXPECT_EQ(package->videoURLs(), (std::vector<fs::path>{root / "loop.mp4", root / "b.mp4", root / "b.mp4"}));
    EXPECT_THAT(log.lines("worlds"), ::testing::ElementsAre(
        "Skipping the night version of calm.hushmeadow: Missing resource for visual.file: night.mp4",
        "Skipping variation in calm.hushmeadow: Missing resource for visual.variations: gone.mp4",
        "Skipping variation in calm.hushmeadow: Invalid value for visual.variations: must be a relative path inside the package"));
    EXPECT_EQ(log.lines("worlds", false).front(), "Skipping the night version of calm.hushmeadow: <private>");
}

} // namespace
} // namespace hushmeadows
