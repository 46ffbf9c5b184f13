#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/ManualSerialQueue.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace hushmeadows {
namespace {

namespace kit = hushmeadows::testing;
using testing::OfflineGraph;
using testing::StereoSignal;

// Passes everything to a real node and notes what was scheduled.
class RecordingNode final : public AudioPlayerNode {
public:
    explicit RecordingNode(std::shared_ptr<AudioPlayerNode> node) : node_(std::move(node)) {}

    float volume() const override { return node_->volume(); }
    void setVolume(float volume) override { node_->setVolume(volume); }
    void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, std::function<void()> completion) override
    {
        scheduled.emplace_back(buffer.get(), buffer->frameLength());
        node_->scheduleBuffer(std::move(buffer), std::move(completion));
    }
    void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, Loops) override { node_->scheduleBuffer(std::move(buffer), loops); }
    void play() override { node_->play(); }
    void stop() override { node_->stop(); }
    bool isPlaying() const override { return node_->isPlaying(); }

    std::vector<std::pair<const PCMBuffer*, std::uint32_t>> scheduled;

private:
    std::shared_ptr<AudioPlayerNode> node_;
};

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
    OfflineGraph graph(loop);
    auto queue = std::make_unique<kit::ManualSerialQueue>(LoopStreamer::queueLabel);
    auto* streamQueue = queue.get();
    auto made = LoopStreamer::make(path, &FFmpegAudioFile::open, 48'000, std::move(queue));
    ASSERT_TRUE(made) << made.error();
    LoopStreamer& streamer = **made;
    EXPECT_EQ(streamer.capacity(), 192'000u);
    EXPECT_EQ(streamer.length(), 480'000);
    EXPECT_EQ(streamer.residentBytes(), 192'000 * 3 * 2 * 4);

    auto recording = std::make_shared<RecordingNode>(graph.addPlayer());
    recording->play();
    ASSERT_TRUE(streamer.prime(0));
    streamer.start(recording, 0);
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

    // Each pass is 192,000 + 192,000 + 96,000 frames, the next pass starting at frame 0,
    // in the same three buffers over and over.
    ASSERT_GE(recording->scheduled.size(), 7u);
    std::set<const PCMBuffer*> distinct;
    for (std::size_t i = 0; i < recording->scheduled.size(); ++i) {
        EXPECT_EQ(recording->scheduled[i].second, i % 3 == 2 ? 96'000u : 192'000u) << "buffer " << i;
        distinct.insert(recording->scheduled[i].first);
    }
    EXPECT_EQ(distinct.size(), 3u);
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
    OfflineGraph graph(loop);
    auto made = LoopStreamer::make(path, &FFmpegAudioFile::open, 48'000, std::make_unique<ThreadSerialQueue>(LoopStreamer::queueLabel));
    ASSERT_TRUE(made) << made.error();
    auto node = graph.addPlayer();
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
