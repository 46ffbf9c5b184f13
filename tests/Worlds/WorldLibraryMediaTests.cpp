#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "SceneCore/Worlds/WorldLibrary.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PackageWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using testing::PackageWriter;
using ::testing::ElementsAre;

std::vector<std::string> ids(const WorldLibrary& library)
{
    std::vector<std::string> out;
    for (const auto& world : library.worlds())
        out.push_back(world.id());
    return out;
}

class WorldLibraryTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    FFmpegMediaProbe media;
};

// Other entries are ignored without a word; a failing package is recorded and
// logged, and the scan goes on.
TEST_F(WorldLibraryTest, ScansByPlainNameOrderRecordsFailuresAndLooksUpWithFallback)
{
    auto folder = dir / "worlds";
    for (auto [name, id] : {std::pair{"b", "bee"}, {"a", "ay"}, {"B", "big-bee"}, {"10", "ten"}, {"9", "nine"}, {".hidden", "hidden"}})
        PackageWriter::writeValid(folder, name + std::string(".hushmeadow"), id);
    PackageWriter::writeValid(folder, "upper.HUSHMEADOW", "upper");
    testing::writeText(folder / "notes.txt", "not a world");
    testing::writeText(folder / "bad.hushmeadow/world.json", "[1, 2");

    testing::LogCapture log;
    auto library = WorldLibrary::searching({folder}, media);
    EXPECT_THAT(ids(library), ElementsAre("hidden", "ten", "nine", "big-bee", "ay", "bee"));
    ASSERT_EQ(library.failures().size(), 1u);
    EXPECT_EQ(library.failures()[0].url, folder / "bad.hushmeadow");
    EXPECT_EQ(library.failures()[0].description(), "bad.hushmeadow: world.json in bad.hushmeadow is invalid: not valid JSON");
    EXPECT_THAT(log.lines("", false), ElementsAre("Skipping world bad.hushmeadow: <private>"));
    EXPECT_THAT(log.lines("worlds", true), ElementsAre("Skipping world bad.hushmeadow: world.json in bad.hushmeadow is invalid: not valid JSON"));

    EXPECT_EQ(library.world("bee")->id(), "bee");
    for (auto id : {std::optional<std::string_view>("stale-id"), std::optional<std::string_view>("Bee"), std::optional<std::string_view>()})
        EXPECT_EQ(library.world(id)->id(), "hidden");
    EXPECT_TRUE(WorldLibrary().world("bee") == nullptr && WorldLibrary().world(std::nullopt) == nullptr);
}

} // namespace
} // namespace hushmeadows
