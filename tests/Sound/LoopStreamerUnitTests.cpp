#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "tests/support/FakeAudioFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <algorithm>


namespace hushmeadows {
namespace {

using testing::OfflineMixer;
using testing::StereoSignal;

// At this rate a buffer holds 4,000 frames, so files stay small.
constexpr double rate = 1000;

using testing::FakeAudioFile;

class LoopStreamerTest : public ::testing::Test {
protected:
    ManualRunLoop loop;
    OfflineMixer graph{loop, rate, 500};
    std::shared_ptr<FakeAudioFile::Shared> file = std::make_shared<FakeAudioFile::Shared>();
    testing::ManualSerialQueue* queue = nullptr;
    std::unique_ptr<LoopStreamer> streamer;
    std::shared_ptr<AudioPlayer> node = graph.mixer().addPlayer();

    void make(std::int64_t length)
    {
        auto owned = std::make_unique<testing::ManualSerialQueue>(LoopStreamer::queueLabel);
        queue = owned.get();
        auto made = LoopStreamer::make("/music/long-song.flac", std::make_unique<FakeAudioFile>(length, rate, file), std::move(owned));
        ASSERT_TRUE(made) << made.error();
        streamer = std::move(*made);
    }

    // Renders as a device would, letting completions and the queue run between quanta.
    StereoSignal play(std::int64_t frames)
    {
        return graph.render(frames, [this] {
            queue->runAll();
            loop.runPending();
        });
    }

    // The rendered frames are the file's frames `expected` (a list of file positions).
    static void expectFrames(const StereoSignal& out, const std::vector<std::int64_t>& expected)
    {
        ASSERT_GE(out.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_EQ(out.left[i], FakeAudioFile::left(expected[i])) << "output frame " << i;
            ASSERT_EQ(out.right[i], FakeAudioFile::right(expected[i])) << "output frame " << i;
        }
    }
    // The file positions from `start` on, looping over `length`, for `count` frames.
    static std::vector<std::int64_t> looped(std::int64_t start, std::int64_t length, std::int64_t count)
    {
        std::vector<std::int64_t> frames;
        for (std::int64_t n = 0; n < count; ++n)
            frames.push_back((start + n) % length);
        return frames;
    }
};

// Buffers never span the loop point, so the first buffer after a mid-file
// start is short; a file shorter than a buffer fills each buffer whole; a
// start past the end begins at the last frame, reusing the primed buffers.
TEST_F(LoopStreamerTest, PlaysTheFileLoopedFromWhereverItStarts)
{
    struct Case { std::int64_t length, prime, start; std::vector<std::uint32_t> firstBuffers; std::int64_t firstFrame; };
    for (const Case& c : {Case{10'000, -1, 7000, {3000, 4000, 4000}, 7000}, Case{2500, -1, 0, {2500, 2500, 2500}, 0},
                          Case{10'000, 25'000, 25'000, {1, 4000, 4000}, 9999}}) {
        SCOPED_TRACE(c.start);
        make(c.length);
        ASSERT_TRUE(c.prime < 0 || streamer->prime(c.prime));
        int readsBefore = file->reads;
        node->play();
        streamer->start(node, c.start);
        EXPECT_EQ(streamer->scheduledCount(), 0) << "start works on the queue";
        queue->runAll();
        EXPECT_TRUE(c.prime < 0 || file->reads == readsBefore) << "the primed buffers are used as they are";
        EXPECT_EQ(streamer->inFlight(), c.firstBuffers);
        EXPECT_EQ(streamer->resumeFrame(), c.firstFrame);
        expectFrames(play(22'000), looped(c.firstFrame, c.length, 22'000));
        EXPECT_EQ(streamer->underrunCount(), 0);
        EXPECT_EQ(streamer->readErrorCount(), 0);
        streamer->stop();
        node->stop();
        loop.runPending();
    }
    EXPECT_EQ(streamer->capacity(), 4000u);
    EXPECT_EQ(streamer->residentBytes(), 4000 * 3 * 2 * 4);
}

TEST_F(LoopStreamerTest, AFailedReadRestartsOnceFromZeroAndASecondFailureEndsTheStream)
{
    testing::LogCapture log;
    make(10'000);
    int failures = 0;
    streamer->setFailureHandler([&] { ++failures; });
    file->faults[4000] = FakeAudioFile::Fault::error;
    node->play();
    streamer->start(node, 0);
    queue->runAll();
    EXPECT_EQ(log.lines("audio"), (std::vector<std::string>{"Streaming long-song.flac failed at frame 4000: damaged block"}));
    EXPECT_EQ(log.lines("audio", false), (std::vector<std::string>{"Streaming long-song.flac failed at frame 4000: <private>"}));
    EXPECT_EQ(failures, 0) << "the retry from frame 0 succeeded";

    // After the recovery, the next failure ends it: no second retry.
    file->faults[8000] = FakeAudioFile::Fault::shortRead;
    StereoSignal out = play(16'000);
    std::vector<std::int64_t> heard = looped(0, 4000, 8000);
    for (std::int64_t frame : looped(4000, 10'000, 4000))
        heard.push_back(frame);
    expectFrames(out, heard);
    EXPECT_TRUE(std::all_of(out.left.begin() + 12'000, out.left.end(), [](float s) { return s == 0.0f; })) << "nothing after the failure";
    EXPECT_EQ(failures, 1);
    EXPECT_TRUE(streamer->hasFailed());
    EXPECT_EQ(streamer->readErrorCount(), 1);
    EXPECT_EQ(log.lines("audio").back(), "Streaming long-song.flac: short read at frame 8000");

    // A new run may try again.
    streamer->stop();
    streamer->start(node, 0);
    queue->runAll();
    EXPECT_FALSE(streamer->hasFailed());
    EXPECT_EQ(streamer->inFlight().size(), 3u);
}

TEST_F(LoopStreamerTest, LateCompletionsOfAStoppedRunChangeNothing)
{
    make(10'000);
    node->play();
    streamer->start(node, 0);
    queue->runAll();
    play(1000);
    streamer->stop();
    EXPECT_EQ(streamer->resumeFrame(), 0);

    // The node plays on through the end of the first buffer: its completion comes late.
    play(4000);
    EXPECT_EQ(streamer->scheduledCount(), 3);
    EXPECT_EQ(streamer->resumeFrame(), 0);

    // A new run, while the old run's buffers are dropped and completed late.
    node->stop();
    node->play();
    streamer->start(node, 3000);
    queue->runAll();
    loop.runPending(); // the dropped buffers' completions
    queue->runAll();
    EXPECT_EQ(streamer->scheduledCount(), 6) << "old completions never feed the new run";
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{4000, 3000, 4000}));
    expectFrames(play(8000), looped(3000, 10'000, 8000));

    // Completions that arrive after the streamer is gone do nothing either.
    streamer.reset();
    EXPECT_EQ(graph.render(8000).left[0], FakeAudioFile::left(1000));
}

} // namespace
} // namespace hushmeadows
