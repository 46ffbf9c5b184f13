#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/ManualSerialQueue.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <thread>

namespace hushmeadows {
namespace {

namespace kit = hushmeadows::testing;
using testing::OfflineMixer;
using testing::StereoSignal;

TEST(LoopStreamerMedia, StreamsOnItsOwnThreadAndRefusesAnEmptyFile)
{
    auto empty = LoopStreamer::make(kit::emptyWav(), &FFmpegAudioFile::open, 48'000,
                                    std::make_unique<ThreadSerialQueue>(LoopStreamer::queueLabel));
    ASSERT_FALSE(empty);
    EXPECT_EQ(empty.error(), "empty file");

    // A short file on a real queue thread: what is rendered is still the file, looped.
    const auto& path = kit::audio({.seconds = 0.5, .container = "ogg"});
    auto whole = FFmpegAudioFile::open(path, 48'000);
    PCMBuffer reference((*whole)->processingFormat(), 24'000);
    ASSERT_TRUE((*whole)->read(reference));

    ManualRunLoop loop;
    OfflineMixer graph(loop);
    auto made = LoopStreamer::make(path, &FFmpegAudioFile::open, 48'000, std::make_unique<ThreadSerialQueue>(LoopStreamer::queueLabel));
    ASSERT_TRUE(made) << made.error();
    auto node = graph.mixer().addPlayer();
    node->play();
    (*made)->start(node, 0);
    // Wait until the queue has scheduled the first three buffers.
    while ((*made)->scheduledCount() < 3 && !(*made)->hasFailed())
        std::this_thread::yield();
    ASSERT_FALSE((*made)->hasFailed());
    std::int64_t done = 0;
    StereoSignal out = graph.render(5 * 24'000, [&] {
        // A device would not wait; the test does, for a deterministic output:
        // every buffer played out has been replaced before the next quantum.
        done = std::min<std::int64_t>(done + 4096, 5 * 24'000);
        while ((*made)->scheduledCount() < 3 + static_cast<int>(done / 24'000) && !(*made)->hasFailed())
            std::this_thread::yield();
    });
    for (std::size_t n = 0; n < out.size(); ++n)
        ASSERT_EQ(out.left[n], reference.channelData(0)[n % 24'000]) << n;
    (*made)->stop();
    node->stop();
}

} // namespace
} // namespace hushmeadows
