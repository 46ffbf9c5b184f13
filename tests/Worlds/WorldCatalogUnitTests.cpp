#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Worlds/WorldCatalog.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

TEST(WorldCatalog, DecodesCollectionsAndDropsOnlyWhatIsBroken)
{
    auto catalog = WorldCatalog::decode(R"({
        "formatVersion": 1,
        "future": {"ignored": true},
        "collections": [
          {"id": "meadows", "name": "Meadows", "subtitle": "Green and calm",
           "worlds": [ {"id": "meadow", "status": "available"},
                       {"id": "winter-meadow", "status": "comingSoon", "name": "Winter Meadow"},
                       {"id": "odd", "status": "beta"},
                       {"id": "plain"},
                       {"status": "available"},
                       {"id": 7},
                       "meadow" ]},
          {"name": "No id"},
          {"id": "cities", "worlds": "not a list"},
          42 ]})");
    ASSERT_EQ(catalog.collections.size(), 2u);
    const auto& meadows = catalog.collections[0];
    EXPECT_EQ(meadows.name, "Meadows");
    EXPECT_EQ(meadows.subtitle, "Green and calm");
    ASSERT_EQ(meadows.worlds.size(), 4u);
    EXPECT_EQ(meadows.worlds[0], (WorldCatalog::Entry{"meadow", WorldCatalog::Status::available, std::nullopt}));
    EXPECT_EQ(meadows.worlds[1], (WorldCatalog::Entry{"winter-meadow", WorldCatalog::Status::comingSoon, "Winter Meadow"}));
    // An unknown status is never shown as available; a missing one is.
    EXPECT_EQ(meadows.worlds[2].status, WorldCatalog::Status::comingSoon);
    EXPECT_EQ(meadows.worlds[3].status, WorldCatalog::Status::available);
    EXPECT_EQ(catalog.collections[1].name, "cities");
    EXPECT_TRUE(catalog.collections[1].worlds.empty());

    ASSERT_NE(catalog.entry("winter-meadow"), nullptr);
    EXPECT_EQ(catalog.entry("missing"), nullptr);
    EXPECT_EQ(WorldCatalog::decode(catalog.toJson().dump()), catalog);

    // Only a text that is not an object fails as a whole.
    EXPECT_THROW(WorldCatalog::decode("[1,2]"), DecodingError);
    EXPECT_THROW(WorldCatalog::decode("{"), DecodingError);
    EXPECT_TRUE(WorldCatalog::decode("{}").collections.empty());
}

TEST(WorldCatalog, LoadsFromAWorldsFolder)
{
    testing::TempDir dir;
    testing::LogCapture log;
    EXPECT_FALSE(WorldCatalog::load(dir.path()));
    EXPECT_TRUE(log.lines().empty());

    testing::writeText(dir / "catalog.json", R"({"collections":[{"id":"c","worlds":[{"id":"w"}]}]})");
    auto catalog = WorldCatalog::load(dir.path());
    ASSERT_TRUE(catalog);
    EXPECT_NE(catalog->entry("w"), nullptr);

    testing::writeText(dir / "catalog.json", "not json");
    EXPECT_FALSE(WorldCatalog::load(dir.path()));
    testing::writeText(dir / "catalog.json", std::string(1'048'577, ' '));
    EXPECT_FALSE(WorldCatalog::load(dir.path()));
    EXPECT_EQ(log.lines("worlds").size(), 2u);
}

} // namespace
} // namespace hushmeadows
