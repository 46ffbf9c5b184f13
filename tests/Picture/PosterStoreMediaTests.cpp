#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;

class PosterStoreTest : public ::testing::Test {
protected:
    ManualRunLoop loop;
    FFmpegMediaProbe probe;
    testing::ManualSerialQueue* queue = nullptr;
    std::unique_ptr<PosterStore> store;
    testing::TempDir dir;

    void SetUp() override
    {
        auto owned = std::make_unique<testing::ManualSerialQueue>(PosterStore::queueLabel);
        queue = owned.get();
        store = std::make_unique<PosterStore>(loop, std::move(owned), std::make_shared<FFmpegImageDecoder>(), probe);
    }

    // Lets the queued decodes run and their results reach the main loop.
    void finishDecodes() { queue->runAll(); loop.runPending(); }
};

TEST_F(PosterStoreTest, ManyWaitersShareOneDecodeAndLaterLoadsAnswerAtOnce)
{
    const fs::path& poster = testing::poster(16, 9);
    std::vector<PosterStore::EntryPtr> calls;
    for (int i = 0; i < 2; ++i)
        store->load(poster, [&](PosterStore::EntryPtr entry) { calls.push_back(entry); });
    EXPECT_EQ(store->decodesStarted(), 1u);

    finishDecodes();
    ASSERT_EQ(calls.size(), 2u);
    ASSERT_NE(calls[0], nullptr);
    EXPECT_EQ(calls[0], calls[1]);
    // The decoded pixels are the file's, in the store's byte order.
    EXPECT_EQ(calls[0]->image.pixels, testing::posterImage(16, 9, PixelFormat::bgra8).pixels);

    bool answered = false;
    store->load(poster, [&](PosterStore::EntryPtr entry) { answered = entry == calls[0]; });
    EXPECT_TRUE(answered); // synchronously, from the cache
    EXPECT_EQ(store->decodesStarted(), 1u);
}

// A poster too large to hold is refused from its header, before a pixel is
// decoded; the log says why each poster cannot be shown.
TEST_F(PosterStoreTest, FailuresAreLoggedWithTheirReasonAndNotCached)
{
    testing::LogCapture log;
    testing::writeText(dir / "broken.png", "not a picture");
    int nulls = 0;
    for (const fs::path& file : {dir / "broken.png", dir / "broken.png", testing::hugePNG()})
        store->load(file, [&](PosterStore::EntryPtr entry) { nulls += entry == nullptr; });
    finishDecodes();
    EXPECT_EQ(nulls, 3);
    EXPECT_EQ(store->cachedCount(), 0u);
    EXPECT_THAT(log.lines("posters"), ::testing::ElementsAre("The poster broken.png cannot be shown: not a readable image",
        "The poster huge.png cannot be shown: the picture is 16000×16000, too large: over 72 MiB once decoded"));

    // A later load tries again, and succeeds once the file is fixed.
    testing::copyFile(testing::poster(), dir / "broken.png");
    PosterStore::EntryPtr entry;
    store->load(dir / "broken.png", [&](PosterStore::EntryPtr e) { entry = e; });
    finishDecodes();
    EXPECT_NE(entry, nullptr);
    EXPECT_EQ(store->decodesStarted(), 3u);
}

TEST_F(PosterStoreTest, CacheStaysWithinItsMemoryLimitDroppingTheLeastRecentlyUsed)
{
    // 2048 × 2048 BGRA costs 16 MiB: four fit in 72 MiB, five do not.
    std::vector<fs::path> files;
    for (int i = 0; i < 5; ++i)
        testing::copyFile(testing::poster(2048, 2048), files.emplace_back(dir / ("p" + std::to_string(i) + ".png")));
    for (std::size_t i = 0; i < 4; ++i)
        store->load(files[i], [](PosterStore::EntryPtr) {});
    finishDecodes();
    EXPECT_EQ(store->cachedCount(), 4u);
    EXPECT_NE(store->cached(files[0]), nullptr); // now the most recently used

    store->load(files[4], [](PosterStore::EntryPtr) {});
    finishDecodes();
    EXPECT_LE(store->cachedCost(), PosterStore::memoryLimit);
    EXPECT_EQ(store->cachedCount(), 4u);
    EXPECT_EQ(store->cached(files[1]), nullptr);
    EXPECT_NE(store->cached(files[0]), nullptr);

    // An evicted poster is simply decoded again.
    store->load(files[1], [](PosterStore::EntryPtr) {});
    EXPECT_EQ(store->decodesStarted(), 6u);
    finishDecodes();
}

TEST_F(PosterStoreTest, PrewarmDecodesOnlyLargeReadablePosters)
{
    testing::writeText(dir / "unreadable.png", "??");
    store->prewarm({dir / "unreadable.png", testing::poster(1000, 1000), testing::poster(1000, 1001), testing::poster(16, 9)});
    EXPECT_EQ(store->decodesStarted(), 1u);
    finishDecodes();
    EXPECT_NE(store->cached(testing::poster(1000, 1001)), nullptr);
    EXPECT_EQ(store->cached(testing::poster(1000, 1000)), nullptr);
}

TEST_F(PosterStoreTest, AStoreGoneBeforeItsDecodeFinishesIsLeftAlone)
{
    bool called = false;
    store->load(testing::poster(), [&](PosterStore::EntryPtr) { called = true; });
    queue->runAll(); // decoded; the result now waits on the main loop
    store.reset();
    loop.runPending();
    EXPECT_FALSE(called);
}

} // namespace
} // namespace hushmeadows
