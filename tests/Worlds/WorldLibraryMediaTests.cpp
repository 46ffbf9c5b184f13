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

TEST_F(WorldLibraryTest, ScansByPlainNameOrderAndIgnoresOtherEntries)
{
    auto folder = dir / "worlds";
    PackageWriter::writeValid(folder, "b.hushmeadow", "bee");
    PackageWriter::writeValid(folder, "a.hushmeadow", "ay");
    PackageWriter::writeValid(folder, "B.hushmeadow", "big-bee");
    PackageWriter::writeValid(folder, "10.hushmeadow", "ten");
    PackageWriter::writeValid(folder, "9.hushmeadow", "nine");
    PackageWriter::writeValid(folder, "upper.HUSHMEADOW", "upper");
    PackageWriter::writeValid(folder, ".hidden.hushmeadow", "hidden");
    testing::writeText(folder / "notes.txt", "not a world");

    testing::LogCapture log;
    auto library = WorldLibrary::searching({folder}, media);
    EXPECT_THAT(ids(library), ElementsAre("hidden", "ten", "nine", "big-bee", "ay", "bee"));
    EXPECT_TRUE(library.failures().empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(WorldLibraryTest, FailuresAreRecordedAndLoggedAndTheScanGoesOn)
{
    auto folder = dir / "worlds";
    testing::writeText(folder / "bad.hushmeadow/world.json", "[1, 2");
    PackageWriter::writeValid(folder, "good.hushmeadow", "good");

    testing::LogCapture log;
    auto library = WorldLibrary::searching({folder}, media);
    EXPECT_THAT(ids(library), ElementsAre("good"));
    ASSERT_EQ(library.failures().size(), 1u);
    EXPECT_EQ(library.failures()[0].url, folder / "bad.hushmeadow");
    EXPECT_EQ(library.failures()[0].description(), "bad.hushmeadow: world.json in bad.hushmeadow is invalid: not valid JSON");
    EXPECT_THAT(log.lines("worlds", false), ElementsAre("Skipping world bad.hushmeadow: <private>"));
    EXPECT_THAT(log.lines("worlds", true), ElementsAre("Skipping world bad.hushmeadow: world.json in bad.hushmeadow is invalid: not valid JSON"));
}

TEST_F(WorldLibraryTest, LookupFallsBackToTheFirstWorld)
{
    PackageWriter::writeValid(dir / "w", "a.hushmeadow", "ay");
    PackageWriter::writeValid(dir / "w", "b.hushmeadow", "bee");
    auto library = WorldLibrary::searching({dir / "w"}, media);
    ASSERT_NE(library.world("bee"), nullptr);
    EXPECT_EQ(library.world("bee")->id(), "bee");
    EXPECT_EQ(library.world("stale-id")->id(), "ay");
    EXPECT_EQ(library.world(std::nullopt)->id(), "ay");
    EXPECT_EQ(library.world("Bee")->id(), "ay");
    EXPECT_EQ(WorldLibrary().world("bee"), nullptr);
    EXPECT_EQ(WorldLibrary().world(std::nullopt), nullptr);
}

} // namespace
} // namespace hushmeadows
