#include "SceneCore/Picture/LoopingVideoSource.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FakeVideoFiles.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

using ::testing::ElementsAre;
using Shown = std::pair<int, int>; // {file number, frame index}

class LoopingVideoSourceTest : public ::testing::Test {
protected:
    ManualRunLoop loop;
    testing::ManualSerialQueue* queue = nullptr;
    testing::FakeVideoFiles files;
    testing::LogCapture log;
    std::unique_ptr<LoopingVideoSource> source;

    void make(std::vector<std::filesystem::path> urls)
    {
        auto owned = std::make_unique<testing::ManualSerialQueue>(LoopingVideoSource::queueLabel);
        queue = owned.get();
        source = std::make_unique<LoopingVideoSource>(std::move(urls), loop, std::move(owned), files.opener());
    }
    // Lets the queue and the main thread catch up with each other.
    void settle()
    {
        for (int i = 0; i < 3; ++i) {
            queue->runAll();
            loop.runPending();
        }
    }
    // One frame time later: what the source hands out then.
    std::optional<Shown> step()
    {
        settle();
        loop.advance(1 / files.rate);
        auto image = source->copyNewFrame(loop.mediaTime());
        return image ? std::optional(testing::FakeVideoFiles::identify(*image)) : std::nullopt;
    }
    std::vector<std::string> lines(std::string_view prefix) const
    {
        std::vector<std::string> found;
        for (const auto& line : log.lines("video"))
            if (line.find(prefix) != std::string::npos)
                found.push_back(line.substr(line.find(prefix)));
        return found;
    }
};

TEST_F(LoopingVideoSourceTest, PlayBeforePreparationStartsOnceReadyPauseHoldsAndInvalidateCloses)
{
    files.frames = {{"a.mp4", 4}};
    make({"a.mp4"});
    source->play();
    EXPECT_EQ(source->copyNewFrame(loop.mediaTime()), nullptr);
    EXPECT_EQ(step(), Shown(0, 0));
    EXPECT_EQ(step(), Shown(0, 1));
    source->pause();
    EXPECT_EQ(step(), std::nullopt);
    loop.advance(5);
    source->play();
    // Play goes on where it paused: nothing skipped, nothing repeated.
    EXPECT_EQ(step(), Shown(0, 2));

    // Invalidated while still loading: nothing is prepared, every file closed.
    files.frames = {{"a.mp4", 4}, {"b.mp4", 4}};
    make({"a.mp4", "b.mp4"});
    source->play();
    source->invalidate();
    settle();
    EXPECT_EQ(step(), std::nullopt);
    EXPECT_EQ(files.openNow, 0);
}

// A one-frame clip loops on one open file and is named once, not per pass.
TEST_F(LoopingVideoSourceTest, AOneFrameClipShowsItsFrameFromOneOpenAndOneLogLine)
{
    files.frames = {{"still.mp4", 1}};
    make({"still.mp4"});
    source->play();
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(step(), Shown(0, 0)) << "step " << i;
    EXPECT_EQ(files.opens, 2) << "one open to check it, one to play it";
    EXPECT_EQ(lines("Playing").size(), 1u);
    EXPECT_GE(source->loopCount(), 98);
}

// Frames decoded ahead stop at four, or earlier once they take the byte
// budget, but one is always ready.
TEST_F(LoopingVideoSourceTest, FramesAheadAreBoundedByCountAndBytes)
{
    const std::pair<PixelSize, int> cases[] = {{{2, 1}, 4}, {{2048, 2048}, 3}, {{4096, 4096}, 1}};
    for (const auto& [size, ahead] : cases) {
        files = {};
        files.frames = {{"a.mp4", 10}};
        files.size = size;
        make({"a.mp4"});
        source->play();
        settle();
        EXPECT_EQ(files.framesRead - 1, ahead) << size.width << "x" << size.height; // one read to check it
        source.reset();
    }
}

TEST_F(LoopingVideoSourceTest, PlaylistPlaysWholeItemsWithoutRepeatsAndDropsFilesThatGoBadUntilNoneIsLeft)
{
    files.frames = {{"a.mp4", 2}, {"b.mp4", 3}, {"c.mp4", 1}};
    make({"a.mp4", "b.mp4", "c.mp4"});
    source->play();
    std::vector<Shown> shown;
    for (int i = 0; i < 200; ++i) {
        auto frame = step();
        ASSERT_TRUE(frame) << "a frame went missing at step " << i;
        shown.push_back(*frame);
        EXPECT_LE(source->queuedItemCount(), LoopingVideoSource::maxQueuedItems);
    }
    // Cut into items: each plays all its frames in order, and no item follows itself.
    std::vector<int> items;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        if (shown[i].second == 0)
            items.push_back(shown[i].first);
        else
            EXPECT_EQ(shown[i], Shown(shown[i - 1].first, shown[i - 1].second + 1)) << "at " << i;
    }
    for (std::size_t i = 1; i < items.size(); ++i)
        EXPECT_NE(items[i], items[i - 1]) << "item " << i;
    EXPECT_EQ(source->loopCount(), static_cast<long>(items.size()) - 1);
    EXPECT_LE(files.mostOpen, 1);

    // A file that goes bad is dropped and named once and the rest play on;
    // when none is left the source fails, stops and closes every file.
    files.broken.insert("b.mp4"); // overwritten: it opens, nothing decodes
    for (int i = 0; i < 30; ++i)
        ASSERT_TRUE(step()) << "the picture froze at step " << i;
    EXPECT_THAT(lines("No playable"), ElementsAre("No playable video in b.mp4"));
    files.broken.insert("a.mp4");
    files.broken.insert("c.mp4");
    for (int i = 0; i < 10 && !source->didFail(); ++i)
        step();
    EXPECT_TRUE(source->didFail());
    EXPECT_FALSE(source->isPlaying());
    EXPECT_EQ(step(), std::nullopt);
    EXPECT_EQ(files.openNow, 0);
}

} // namespace
} // namespace hushmeadows
