#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/SoftwareAudioEngine.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace hushmeadows {
namespace {

using testing::makeBuffer;
using testing::OfflineGraph;
using testing::StereoSignal;

// Distinct, exactly representable values: frame i of a buffer tagged `tag`.
float leftValue(int tag, std::uint32_t i) { return static_cast<float>(tag * 100000 + static_cast<int>(i) + 1) / 1024.0f; }
float rightValue(int tag, std::uint32_t i) { return -leftValue(tag, i); }

std::shared_ptr<PCMBuffer> tagged(int tag, std::uint32_t frames)
{
    return makeBuffer(frames, [tag](std::uint32_t i) { return leftValue(tag, i); },
                      [tag](std::uint32_t i) { return rightValue(tag, i); });
}

TEST(SoftwareAudioEngine, LoopedBufferRepeatsSampleBySampleAcrossTheLoopPoint)
{
    ManualRunLoop loop;
    OfflineGraph graph(loop);
    auto node = graph.addPlayer();
    node->scheduleBuffer(tagged(1, 1000), AudioPlayerNode::loops);
    node->play();

    // Quanta of 777 frames end at every phase of the 1000-frame loop.
    StereoSignal out = graph.render(10'000, 777);
    ASSERT_EQ(out.size(), 10'000u);
    for (std::uint32_t n = 0; n < out.size(); ++n) {
        ASSERT_EQ(out.left[n], leftValue(1, n % 1000)) << "frame " << n;
        ASSERT_EQ(out.right[n], rightValue(1, n % 1000)) << "frame " << n;
    }
    // A buffer scheduled behind a looping one waits for ever.
    node->scheduleBuffer(tagged(2, 10));
    out = graph.render(1000);
    EXPECT_EQ(out.left[0], leftValue(1, 0));
    EXPECT_EQ(out.left[999], leftValue(1, 999));
}

TEST(SoftwareAudioEngine, BuffersScheduledBackToBackPlayGaplesslyThenCompleteOnTheMainLoop)
{
    ManualRunLoop loop;
    OfflineGraph graph(loop);
    auto node = graph.addPlayer();
    std::vector<int> completed;
    node->scheduleBuffer(tagged(1, 300), [&] { completed.push_back(1); });
    node->scheduleBuffer(tagged(2, 500), [&] { completed.push_back(2); });
    // Mono plays on both channels.
    node->scheduleBuffer(makeBuffer(200, [](std::uint32_t i) { return leftValue(3, i); }), [&] { completed.push_back(3); });
    node->play();
    EXPECT_TRUE(node->isPlaying());

    PCMBuffer quantum(AudioFormat{48000, 2}, 4096);
    StereoSignal out;
    auto renderOnly = [&](std::uint32_t frames) {
        ASSERT_TRUE(graph.engine().renderOffline(frames, quantum));
        out.append(quantum);
    };

    renderOnly(299);
    loop.runPending();
    EXPECT_TRUE(completed.empty()) << "one frame of the first buffer is still to play";

    renderOnly(2);
    EXPECT_TRUE(completed.empty()) << "completions never run inside the render";
    loop.runPending();
    EXPECT_EQ(completed, (std::vector<int>{1}));

    renderOnly(1000);
    EXPECT_EQ(completed, (std::vector<int>{1})) << "not before the main loop runs";
    loop.runPending();
    EXPECT_EQ(completed, (std::vector<int>{1, 2, 3}));

    ASSERT_EQ(out.size(), 1301u);
    for (std::uint32_t n = 0; n < 300; ++n)
        ASSERT_EQ(out.left[n], leftValue(1, n));
    for (std::uint32_t n = 0; n < 500; ++n) {
        ASSERT_EQ(out.left[300 + n], leftValue(2, n));
        ASSERT_EQ(out.right[300 + n], rightValue(2, n));
    }
    for (std::uint32_t n = 0; n < 200; ++n) {
        ASSERT_EQ(out.left[800 + n], leftValue(3, n));
        ASSERT_EQ(out.right[800 + n], leftValue(3, n));
    }
    for (std::size_t n = 1000; n < out.size(); ++n)
        ASSERT_EQ(out.left[n], 0.0f);
    EXPECT_TRUE(node->isPlaying()) << "running dry does not stop the node";
}

TEST(SoftwareAudioEngine, NodeVolumesAndTheOutputVolumeScaleTheMixExactlyFromTheNextQuantum)
{
    ManualRunLoop loop;
    OfflineGraph graph(loop);
    auto first = graph.addPlayer();
    auto second = graph.addPlayer(1);
    first->scheduleBuffer(tagged(1, 64), AudioPlayerNode::loops);
    second->scheduleBuffer(makeBuffer(64, [](std::uint32_t i) { return leftValue(2, i); }), AudioPlayerNode::loops);
    first->play();
    second->play();

    StereoSignal out = graph.render(64);
    for (std::uint32_t n = 0; n < 64; ++n)
        ASSERT_EQ(out.left[n], leftValue(1, n) + leftValue(2, n));

    first->setVolume(0.5f);
    second->setVolume(0.25f);
    graph.engine().mainMixerNode().setOutputVolume(0.5f);
    EXPECT_EQ(first->volume(), 0.5f);
    EXPECT_EQ(graph.engine().mainMixerNode().outputVolume(), 0.5f);
    out = graph.render(64);
    for (std::uint32_t n = 0; n < 64; ++n) {
        ASSERT_EQ(out.left[n], (leftValue(1, n) * 0.5f + leftValue(2, n) * 0.25f) * 0.5f);
        ASSERT_EQ(out.right[n], (rightValue(1, n) * 0.5f + leftValue(2, n) * 0.25f) * 0.5f);
    }

    graph.engine().mainMixerNode().setOutputVolume(0.0f);
    out = graph.render(64);
    for (std::uint32_t n = 0; n < 64; ++n)
        ASSERT_EQ(out.left[n], 0.0f);
}

TEST(SoftwareAudioEngine, StopDropsWhatWasScheduledAndTheNextQuantumIsSilent)
{
    ManualRunLoop loop;
    OfflineGraph graph(loop);
    auto node = graph.addPlayer();
    int completions = 0;
    node->scheduleBuffer(tagged(1, 5000), [&] { ++completions; });
    node->scheduleBuffer(tagged(2, 5000), [&] { ++completions; });
    node->scheduleBuffer(tagged(3, 100), AudioPlayerNode::loops);
    node->play();
    StereoSignal out = graph.render(1000);
    EXPECT_EQ(out.left[999], leftValue(1, 999));

    node->stop();
    EXPECT_FALSE(node->isPlaying());
    EXPECT_EQ(completions, 0) << "dropped buffers complete on the main loop, not inside stop()";
    out = graph.render(4096);
    for (std::size_t n = 0; n < out.size(); ++n)
        ASSERT_EQ(out.left[n], 0.0f) << n;
    EXPECT_EQ(completions, 2) << "every completion runs once, dropped buffers' too";

    // Playing again starts from what is scheduled next, at its first frame.
    node->scheduleBuffer(tagged(4, 10));
    out = graph.render(20);
    EXPECT_EQ(out.left[0], 0.0f) << "a stopped node stays silent until play()";
    node->play();
    out = graph.render(20);
    EXPECT_EQ(out.left[0], leftValue(4, 0));
    EXPECT_EQ(out.left[9], leftValue(4, 9));
    EXPECT_EQ(out.left[10], 0.0f);
    EXPECT_EQ(completions, 2);

    // Detaching drops the schedule as stop() does; reset stops every node.
    auto other = graph.addPlayer();
    bool detachedDone = false;
    other->scheduleBuffer(tagged(5, 10), [&] { detachedDone = true; });
    other->play();
    graph.engine().detach(other);
    loop.runPending();
    EXPECT_TRUE(detachedDone);
    node->scheduleBuffer(tagged(6, 100), AudioPlayerNode::loops);
    graph.engine().reset();
    EXPECT_FALSE(node->isPlaying());
    out = graph.render(100);
    EXPECT_EQ(out.left[50], 0.0f);
}

TEST(SoftwareAudioEngine, ManualRenderingChecksItsPreconditionsAndMixesDownToMono)
{
    ManualRunLoop loop;
    SoftwareAudioEngine engine(loop, nullptr);
    PCMBuffer stereo(AudioFormat{48000, 2}, 512);
    EXPECT_EQ(engine.renderOffline(16, stereo).error(), "the engine is not in manual rendering mode");
    EXPECT_EQ(engine.start().error(), "the engine has no output device");
    EXPECT_FALSE(engine.isRunning());

    EXPECT_FALSE(engine.enableManualRenderingMode(AudioFormat{48000, 6}, 512));
    EXPECT_FALSE(engine.enableManualRenderingMode(AudioFormat{48000, 2}, 0));
    ASSERT_TRUE(engine.enableManualRenderingMode(AudioFormat{44100, 1}, 256));
    EXPECT_EQ(engine.sampleRate(), 44100);
    PCMBuffer mono(AudioFormat{44100, 1}, 512);
    EXPECT_EQ(engine.renderOffline(16, mono).error(), "the engine is not running");
    ASSERT_TRUE(engine.start());
    EXPECT_TRUE(engine.isRunning());
    EXPECT_FALSE(engine.enableManualRenderingMode(AudioFormat{48000, 2}, 256)) << "only while stopped";
    EXPECT_FALSE(engine.renderOffline(257, mono)) << "more than the maximum frame count";
    EXPECT_FALSE(engine.renderOffline(16, stereo)) << "another format";

    auto node = engine.makePlayerNode();
    engine.attach(node);
    engine.connect(*node, AudioFormat{44100, 2});
    node->scheduleBuffer(makeBuffer(16, [](std::uint32_t i) { return i * 0.25f; }, [](std::uint32_t) { return 1.0f; }, 44100));
    node->play();
    ASSERT_TRUE(engine.renderOffline(16, mono));
    EXPECT_EQ(mono.frameLength(), 16u);
    for (std::uint32_t i = 0; i < 16; ++i)
        EXPECT_EQ(mono.channelData(0)[i], (i * 0.25f + 1.0f) * 0.5f);

    engine.pause();
    EXPECT_FALSE(engine.isRunning());
    EXPECT_FALSE(engine.renderOffline(16, mono));
}

// An output device at the port: the test pulls the render source itself.
class FakeOutput final : public AudioOutput {
public:
    std::expected<void, std::string> start(AudioRenderSource& source, double sampleRate) override
    {
        if (refuse)
            return std::unexpected(std::string("no device here"));
        this->source = &source;
        rate = sampleRate;
        running = true;
        return {};
    }
    void pause() override { running = false; }
    void stop() override
    {
        running = false;
        source = nullptr;
        ++stops;
    }
    void setDeviceChangeHandler(std::function<void()> handler) override { changed = std::move(handler); }

    bool refuse = false;
    AudioRenderSource* source = nullptr;
    double rate = 0;
    bool running = false;
    int stops = 0;
    std::function<void()> changed;
};

TEST(SoftwareAudioEngine, OnAnOutputCompletionsArriveByTimerAndADeviceChangeStopsAndTellsObservers)
{
    ManualRunLoop loop;
    auto output = std::make_shared<FakeOutput>();
    SoftwareAudioEngine engine(loop, output);
    output->refuse = true;
    EXPECT_EQ(engine.start().error(), "no device here");
    EXPECT_FALSE(engine.isRunning());
    output->refuse = false;
    ASSERT_TRUE(engine.start());
    EXPECT_TRUE(engine.isRunning());
    ASSERT_EQ(output->source, &engine);
    EXPECT_EQ(output->rate, 48000);

    auto node = engine.makePlayerNode();
    engine.attach(node);
    engine.connect(*node, AudioFormat{48000, 2});
    bool done = false;
    node->scheduleBuffer(tagged(1, 100), [&] { done = true; });
    node->play();
    std::vector<float> device(2 * 256);
    output->source->render(device.data(), 256);
    EXPECT_EQ(device[2 * 99], leftValue(1, 99));
    EXPECT_EQ(device[2 * 100], 0.0f);
    loop.runPending();
    EXPECT_FALSE(done) << "the device thread posts nothing; a main-loop timer collects completions";
    loop.advance(SoftwareAudioEngine::drainInterval);
    EXPECT_TRUE(done);

    int heard = 0, heardByCancelled = 0;
    auto observer = engine.observeConfigurationChange([&] { ++heard; });
    auto cancelled = engine.observeConfigurationChange([&] { ++heardByCancelled; });
    cancelled->cancel();
    EXPECT_TRUE(cancelled->isCancelled());
    int stopsBefore = output->stops;
    std::thread([&] { output->changed(); }).join(); // reported from another thread
    EXPECT_EQ(heard, 0) << "observers hear it on the main loop";
    loop.runPending();
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(heardByCancelled, 0);
    EXPECT_FALSE(engine.isRunning());
    EXPECT_EQ(output->stops, stopsBefore + 1) << "the lost device is let go";
    ASSERT_TRUE(engine.start()) << "starting again opens the current device";
    EXPECT_TRUE(output->running);
    engine.pause();
    EXPECT_FALSE(output->running);
    EXPECT_FALSE(engine.isRunning());
}

// Scheduling, volume changes and stops on this thread while another renders:
// every completion still runs once, and (under ThreadSanitizer) nothing races.
TEST(SoftwareAudioEngine, RendersOnItsOwnThreadWhileTheMainThreadChangesTheGraph)
{
    ManualRunLoop loop;
    auto output = std::make_shared<FakeOutput>();
    SoftwareAudioEngine engine(loop, output);
    ASSERT_TRUE(engine.start());
    std::atomic<bool> quit{false};
    std::atomic<int> quanta{0};
    std::thread device([&] {
        std::vector<float> samples(2 * 512);
        while (!quit.load()) {
            engine.render(samples.data(), 512);
            quanta.fetch_add(1);
            std::this_thread::yield();
        }
    });

    std::vector<std::shared_ptr<AudioPlayerNode>> nodes;
    for (int i = 0; i < 3; ++i) {
        nodes.push_back(engine.makePlayerNode());
        engine.attach(nodes.back());
        engine.connect(*nodes.back(), AudioFormat{48000, 2});
        nodes.back()->play();
    }
    int scheduled = 0, completed = 0;
    std::thread helper([&] {
        // Another thread schedules too, as a streamer's queue does.
        for (int i = 0; i < 200; ++i)
            nodes[0]->scheduleBuffer(tagged(1, 64));
    });
    for (int round = 0; round < 300; ++round) {
        auto& node = nodes[static_cast<std::size_t>(round) % nodes.size()];
        node->scheduleBuffer(tagged(round, 256), [&] { ++completed; });
        ++scheduled;
        node->setVolume(static_cast<float>(round % 4) * 0.25f);
        engine.mainMixerNode().setOutputVolume(round % 2 ? 1.0f : 0.5f);
        if (round % 50 == 49) {
            node->stop();
            node->play();
        }
        loop.advance(SoftwareAudioEngine::drainInterval);
    }
    helper.join();
    while (quanta.load() < 50)
        std::this_thread::yield();
    for (auto& node : nodes)
        node->stop();
    quit.store(true);
    device.join();
    loop.advance(1);
    EXPECT_EQ(completed, scheduled);
}

} // namespace
} // namespace hushmeadows
