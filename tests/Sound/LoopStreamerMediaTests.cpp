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

TEST(LoopStreamerMedia, TenSecondsAtFortyEightKilohertzRotateThreeBuffersAndLoopSampleExactly)
{
    const auto& path = kit::audio({.seconds = 10, .container = "flac", .frequency = 523.25});
    // What the file holds, read whole.
    auto whole = FFmpegAudioFile::open(path, 48'000);
    ASSERT_TRUE(whole) << whole.error();
    ASSERT_EQ((*whole)->length(), 480'000);
    PCMBuffer reference((*whole)->processingFormat(), 480'000);
    ASSERT_TRUE((*whole)->read(reference));
    ASSERT_EQ(reference.frameLength(), 480'000u);

    ManualRunLoop loop;
    OfflineMixer graph(loop);
    auto queue = std::make_unique<kit::ManualSerialQueue>(LoopStreamer::queueLabel);
    auto* streamQueue = queue.get();
    auto made = LoopStreamer::make(path, &FFmpegAudioFile::open, 48'000, std::move(queue));
    ASSERT_TRUE(made) << made.error();
    LoopStreamer& streamer = **made;
    EXPECT_EQ(streamer.capacity(), 192'000u);
    EXPECT_EQ(streamer.length(), 480'000);
    EXPECT_EQ(streamer.residentBytes(), 192'000 * 3 * 2 * 4);

    auto player = graph.mixer().addPlayer();
    player->play();
    ASSERT_TRUE(streamer.prime(0));
    streamer.start(player, 0);
    streamQueue->runAll();
    EXPECT_EQ(streamer.inFlight(), (std::vector<std::uint32_t>{192'000, 192'000, 96'000}));

    // 22 s: past the loop point twice.
    constexpr std::int64_t rendered = 22 * 48'000;
    StereoSignal out = graph.render(rendered, [&] { streamQueue->runAll(); });
    ASSERT_EQ(out.size(), static_cast<std::size_t>(rendered));
    for (std::size_t n = 0; n < out.size(); ++n) {
        std::size_t frame = n % 480'000;
        ASSERT_EQ(out.left[n], reference.channelData(0)[frame]) << "output frame " << n;
        ASSERT_EQ(out.right[n], reference.channelData(1)[frame]) << "output frame " << n;
    }

    EXPECT_EQ(streamer.underrunCount(), 0);
    EXPECT_EQ(streamer.readErrorCount(), 0);
}

TEST(LoopStreamerMedia, StreamsOnItsOwnThreadAndRefusesAnEmptyFile)
{
    auto empty = LoopStreamer::make(kit::emptyWav(), &FFmpegAudioFile::open, 48'000,
                                    std::make_unique<ThreadSerialQueue>(LoopStreamer::queueLabel));
    ASSERT_FALSE(empty);
    EXPECT_EQ(empty.error(), "empty file");

    // A short file on a real queue thread: what is rendered is still the file, looped.
    const auto& path = kit::audio({.seconds = 0.5, .container = "ogg"});
    auto whole = FFmpegAudioFile::open(path, 48'000);
    ASSERT_TRUE(whole);
    PCMBuffer reference((*whole)->processingFormat(), static_cast<std::uint32_t>((*whole)->length()));
    ASSERT_TRUE((*whole)->read(reference));
    ASSERT_EQ(reference.frameLength(), 24'000u);

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
    std::int64_t length = (*made)->length();
    std::int64_t done = 0;
    StereoSignal out = graph.render(5 * length, [&] {
        // A device would not wait; the test does, for a deterministic output:
        // every buffer played out has been replaced before the next quantum.
        done += 4096;
        while ((*made)->scheduledCount() < 3 + static_cast<int>(std::min(done, 5 * length) / length) && !(*made)->hasFailed())
            std::this_thread::yield();
    });
    for (std::size_t n = 0; n < out.size(); ++n)
        ASSERT_EQ(out.left[n], reference.channelData(0)[n % static_cast<std::size_t>(length)]) << n;
    (*made)->stop();
    node->stop();
}

} // namespace
} // namespace hushmeadows
