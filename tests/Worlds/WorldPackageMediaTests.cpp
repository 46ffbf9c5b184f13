#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Worlds/WorldCatalog.h"
#include "SceneCore/Worlds/WorldPackage.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PackageWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using testing::PackageWriter;
using Json = nlohmann::json;
using ::testing::HasSubstr;

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
        {"plain", "plain.hushmeadow is not a world package directory"},
        {"empty", "No world.json in empty.hushmeadow"},
        {"broken", "world.json in broken.hushmeadow is invalid: not valid JSON"},
        {"limit", "loaded"},
        {"over", "world.json in over" + unreadable},
        {"folder", "world.json in folder" + unreadable},
        {"zero", "world.json in zero" + unreadable},
        {"pipe", "world.json in pipe" + unreadable},
    };
    for (const auto& [name, expected] : cases) {
        auto package = WorldPackage::contentsOf(dir / (name + ".hushmeadow"), media);
        EXPECT_EQ(package ? std::string("loaded") : package.error().description(), expected) << name;
    }
}

TEST_F(WorldPackageTest, ValidationOrderAndMessages)
{
    auto m = PackageWriter::minimalManifest("Bad Id");
    m["formatVersion"] = 2; // checked before the id
    EXPECT_EQ(failure(m), "World format version 2 is not supported by this version of Hushmeadows");

    for (const char* id : {"calm-lake", "9lives", "a"}) {
        EXPECT_EQ(failure(PackageWriter::minimalManifest(id)), "loaded") << id;
    }
    for (const char* id : {"-calm", "Calm", "calm_lake", "calm lake", "", " calm", "   ", "calm\n\n"}) {
        EXPECT_EQ(failure(PackageWriter::minimalManifest(id)), "Invalid value for id: use lowercase letters, digits and hyphens") << '"' << id << '"';
    }

    m = PackageWriter::minimalManifest("calm");
    m["name"] = "   ";
    EXPECT_EQ(failure(m), "Invalid value for name: must not be empty");
    m["name"] = "\xE3\x80\x80\t"; // an ideographic space and a tab
    EXPECT_EQ(failure(m), "Invalid value for name: must not be empty");

    m = PackageWriter::minimalManifest("calm");
    m["visual"]["focus"] = {{"x", 1.0}, {"y", 0.0}};
    m["visual"]["safeArea"] = {{"width", 0.1}, {"height", 1.0}};
    EXPECT_EQ(failure(m), "loaded");
    m["visual"]["focus"] = {{"x", 1.01}, {"y", 0.5}};
    EXPECT_EQ(failure(m), "Invalid value for visual.focus: coordinates must be within 0...1");
    m["visual"]["focus"] = {{"x", 0.5}, {"y", 0.5}};
    m["visual"]["safeArea"] = {{"width", 0.09}, {"height", 0.5}};
    EXPECT_EQ(failure(m), "Invalid value for visual.safeArea: fractions must be within 0.1...1");
}

TEST_F(WorldPackageTest, ResourcePathsStayInsideThePackage)
{
    auto withVideo = [](const std::string& file) {
        auto m = PackageWriter::minimalManifest("calm");
        m["visual"]["file"] = file;
        return m;
    };
    for (const char* bad : {"../loop.mp4", "clips/../../loop.mp4", "/etc/passwd", ""}) {
        EXPECT_EQ(failure(withVideo(bad)), "Invalid value for visual.file: must be a relative path inside the package") << bad;
    }
    EXPECT_EQ(failure(withVideo("clips//loop.mp4"), {{"clips/loop.mp4", testing::video()}}), "loaded");
    EXPECT_EQ(failure(withVideo("./loop.mp4")), "loaded");
    EXPECT_EQ(failure(withVideo("gone.mp4")), "Missing resource for visual.file: gone.mp4");
    EXPECT_EQ(failure(withVideo("clips"), {{"clips/x.mp4", testing::video()}}), "Missing resource for visual.file: clips");

    // A link that leaves the folder is caught after resolving; one that stays inside is fine.
    testing::copyFile(testing::video(), dir / "outside.mp4");
    auto folder = PackageWriter::write(dir.path(), "linked.hushmeadow", withVideo("loop.mp4"), {});
    fs::create_symlink(dir / "outside.mp4", folder / "loop.mp4");
    auto linked = WorldPackage::contentsOf(folder, media);
    ASSERT_FALSE(linked);
    EXPECT_EQ(linked.error().description(), "visual.file (loop.mp4) resolves outside the world package");

    auto inside = PackageWriter::write(dir.path(), "inside.hushmeadow", withVideo("loop.mp4"), {{"media/real.mp4", testing::video()}});
    fs::create_symlink("media/real.mp4", inside / "loop.mp4");
    EXPECT_TRUE(WorldPackage::contentsOf(inside, media));

    auto resolved = WorldPackage::requireResource("visual.file", "loop.mp4", inside);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->filename(), "real.mp4");
}

TEST_F(WorldPackageTest, MediaChecksOfPosterAndSound)
{
    auto m = PackageWriter::minimalManifest("calm");
    m["visual"]["poster"] = "poster.png";
    testing::TempDir scratch;
    testing::writeText(scratch / "zero.png", "");
    testing::writeText(scratch / "text.png", "this is not an image");
    testing::writeText(scratch / "text.flac", "this is not audio");

    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"poster.png", testing::poster()}}), "loaded");
    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"poster.png", scratch / "zero.png"}}), "visual.poster (poster.png) is empty");
    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"poster.png", scratch / "text.png"}}),
              "visual.poster (poster.png) can't be decoded: not a readable image");

    m = PackageWriter::minimalManifest("calm");
    m["audio"] = {{"music", {{"file", "missing.flac"}, {"defaultVolume", 1.5}}}};
    EXPECT_EQ(failure(m), "Invalid value for audio.music.defaultVolume: must be within 0...1");

    m["audio"]["music"]["defaultVolume"] = 0.5;
    EXPECT_EQ(failure(m), "Missing resource for audio.music.file: missing.flac");

    m["audio"] = {{"ambience", {{"file", "wind.flac"}, {"defaultVolume", 0.7}}}};
    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"wind.flac", scratch / "text.flac"}}),
              "audio.ambience.file (wind.flac) can't be decoded: not a readable audio file");
    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"wind.flac", testing::emptyWav()}}),
              "audio.ambience.file (wind.flac) can't be decoded: contains no audio");
    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"wind.flac", testing::audio({.container = "flac"})}}), "loaded");
}

// Files an archive or another user can place: each is refused at once with
// its reason, never read without bound, never waited on.
TEST_F(WorldPackageTest, HostileFilesAreRefusedWithTheirReason)
{
    fs::create_directories(dir / "Worlds");
    ASSERT_EQ(::mkfifo((dir / "Worlds" / WorldCatalog::fileName).c_str(), 0600), 0);
    EXPECT_FALSE(WorldCatalog::load(dir / "Worlds"));
    fs::remove(dir / "Worlds" / WorldCatalog::fileName);
    fs::create_symlink("/dev/zero", dir / "Worlds" / WorldCatalog::fileName);
    EXPECT_FALSE(WorldCatalog::load(dir / "Worlds"));

    auto m = PackageWriter::minimalManifest("calm");
    m["visual"]["file"] = std::string("loop.mp4\0/../../outside", 24);
    EXPECT_EQ(failure(m), "Invalid value for visual.file: must be a relative path inside the package");

    // 16000 x 16000 in 31 KB: 1 GB once decoded.
    testing::TempDir scratch;
    testing::runCommand("python3 -c " + testing::shellQuoted(R"(
import struct, zlib
def chunk(k, d): return struct.pack(">I", len(d)) + k + d + struct.pack(">I", zlib.crc32(k + d))
z = zlib.compressobj(9); row = bytes(2001)
idat = b"".join(z.compress(row) for _ in range(16000)) + z.flush()
open(")" + (scratch / "bomb.png").string() + R"(", "wb").write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 16000, 16000, 1, 0, 0, 0, 0)) + chunk(b"IDAT", idat) + chunk(b"IEND", b""))
)"));
    m = PackageWriter::minimalManifest("calm");
    m["visual"]["poster"] = "poster.png";
    EXPECT_EQ(failure(m, {{"loop.mp4", testing::video()}, {"poster.png", scratch / "bomb.png"}}),
              "visual.poster (poster.png) can't be decoded: the picture is too large: over 72 MiB once decoded");
}

TEST_F(WorldPackageTest, FailingVersionIsDroppedAndLogged)
{
    testing::LogCapture log;
    auto m = PackageWriter::minimalManifest("calm");
    m["timeOfDay"] = "day";
    m["versions"] = {{"night", {{"visual", {{"file", "night.mp4"}}}}}};
    auto package = load(m);
    ASSERT_TRUE(package);
    EXPECT_TRUE(package->manifest().versions.empty());
    EXPECT_TRUE(package->phases().empty());
    EXPECT_THAT(log.lines("worlds"), ::testing::ElementsAre("Skipping the night version of calm.hushmeadow: Missing resource for visual.file: night.mp4"));
    EXPECT_THAT(log.lines("worlds", false), ::testing::ElementsAre("Skipping the night version of calm.hushmeadow: <private>"));
}

TEST_F(WorldPackageTest, VariationsThatFailAreDropped)
{
    testing::LogCapture log;
    auto m = PackageWriter::minimalManifest("calm");
    m["visual"]["variations"] = {"b.mp4", "loop.mp4", "gone.mp4", "b.mp4", "../b.mp4"};
    auto package = load(m, {{"loop.mp4", testing::video()}, {"b.mp4", testing::video()}});
    ASSERT_TRUE(package);
    // The main video named again is dropped silently; duplicates are kept.
    EXPECT_EQ(package->variationFiles(), (std::vector<std::string>{"b.mp4", "b.mp4"}));
    EXPECT_EQ(package->videoURLs(), (std::vector<fs::path>{package->rootURL() / "loop.mp4", package->rootURL() / "b.mp4", package->rootURL() / "b.mp4"}));
    EXPECT_THAT(log.lines("worlds"), ::testing::ElementsAre(
        "Skipping variation in calm.hushmeadow: Missing resource for visual.variations: gone.mp4",
        "Skipping variation in calm.hushmeadow: Invalid value for visual.variations: must be a relative path inside the package"));

    m["visual"]["variations"] = {"x.mp4", "y.mp4"};
    auto lonely = load(m);
    ASSERT_TRUE(lonely);
    EXPECT_EQ(lonely->videoURLs(), std::vector<fs::path>{lonely->rootURL() / "loop.mp4"});
}

} // namespace
} // namespace hushmeadows
