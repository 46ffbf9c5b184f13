#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "tests/support/FakeAudioFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>


namespace hushmeadows {
namespace {

using testing::OfflineMixer;
using testing::StereoSignal;

// At this rate a buffer holds 4,000 frames, so files stay small.
constexpr double rate = 1000;

using testing::FakeAudioFile;
float leftAt(std::int64_t frame) { return FakeAudioFile::left(frame); }
float rightAt(std::int64_t frame) { return FakeAudioFile::right(frame); }

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
    static void expectFrames(const StereoSignal& out, std::size_t from, const std::vector<std::int64_t>& expected)
    {
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_EQ(out.left[from + i], leftAt(expected[i])) << "output frame " << from + i;
            ASSERT_EQ(out.right[from + i], rightAt(expected[i])) << "output frame " << from + i;
        }
    }
    static std::vector<std::int64_t> range(std::int64_t from, std::int64_t to)
    {
        std::vector<std::int64_t> frames;
        for (std::int64_t f = from; f < to; ++f)
            frames.push_back(f);
        return frames;
    }
    static std::vector<std::int64_t> concat(std::initializer_list<std::vector<std::int64_t>> parts)
    {
        std::vector<std::int64_t> all;
        for (const auto& part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }
};

TEST_F(LoopStreamerTest, StartsMidFileThenWrapsToFrameZeroWithBuffersThatNeverSpanTheLoopPoint)
{
    make(10'000);
    EXPECT_EQ(streamer->capacity(), 4000u);
    EXPECT_EQ(streamer->residentBytes(), 4000 * 3 * 2 * 4);
    EXPECT_EQ(streamer->format(), (AudioFormat{rate, 2}));
    node->play();
    streamer->start(node, 7000);
    EXPECT_EQ(streamer->scheduledCount(), 0) << "start works on the queue";
    queue->runAll();
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{3000, 4000, 4000}));
    EXPECT_EQ(streamer->resumeFrame(), 7000);

    StereoSignal out = play(3500);
    // The first buffer is done and replaced by the next one, 8000 ..< 10000.
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{4000, 4000, 2000}));
    EXPECT_EQ(streamer->resumeFrame(), 0);
    StereoSignal more = play(18'500);
    out.left.insert(out.left.end(), more.left.begin(), more.left.end());
    out.right.insert(out.right.end(), more.right.begin(), more.right.end());
    std::vector<std::int64_t> expected;
    for (std::int64_t n = 0; n < 22'000; ++n)
        expected.push_back((7000 + n) % 10'000);
    expectFrames(out, 0, expected);
    EXPECT_EQ(streamer->underrunCount(), 0);
    EXPECT_EQ(streamer->readErrorCount(), 0);
    // 3000 + 4000 + 4000 + 2000 + 4000 + 4000 + 2000 + … : 22,000 frames take 7 buffers, 3 more lie ahead.
    EXPECT_EQ(streamer->scheduledCount(), 9);
    EXPECT_EQ(streamer->resumeFrame(), (7000 + 22'000) % 10'000 - 1000) << "the oldest buffer in flight started at 8000";
}

TEST_F(LoopStreamerTest, PrimingBeyondTheEndStartsAtTheLastFrameAndAStartThereReadsNothing)
{
    make(10'000);
    ASSERT_TRUE(streamer->prime(25'000));
    EXPECT_EQ(file->reads, 3);
    node->play();
    streamer->start(node, 25'000);
    queue->runAll();
    EXPECT_EQ(file->reads, 3) << "the primed buffers are used as they are";
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{1, 4000, 4000}));
    StereoSignal out = play(9000);
    expectFrames(out, 0, concat({{9999}, range(0, 8999)}));

}

TEST_F(LoopStreamerTest, AFileShorterThanABufferLoopsWholeInEveryBuffer)
{
    make(2500);
    EXPECT_EQ(streamer->capacity(), 2500u);
    node->play();
    streamer->start(node, 0);
    queue->runAll();
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{2500, 2500, 2500}));
    StereoSignal out = play(12'000);
    std::vector<std::int64_t> expected;
    for (std::int64_t n = 0; n < 12'000; ++n)
        expected.push_back(n % 2500);
    expectFrames(out, 0, expected);
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
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{4000, 4000, 4000}));
    EXPECT_EQ(log.lines("audio"), (std::vector<std::string>{"Streaming long-song.flac failed at frame 4000: damaged block"}));
    EXPECT_EQ(log.lines("audio", false), (std::vector<std::string>{"Streaming long-song.flac failed at frame 4000: <private>"}));
    EXPECT_EQ(failures, 0) << "the retry from frame 0 succeeded";

    // After the recovery, the next failure ends it: no second retry.
    file->faults[8000] = FakeAudioFile::Fault::shortRead;
    StereoSignal out = play(16'000);
    expectFrames(out, 0, concat({range(0, 4000), range(0, 4000), range(4000, 8000)}));
    for (std::size_t n = 12'000; n < out.size(); ++n)
        ASSERT_EQ(out.left[n], 0.0f) << "nothing is scheduled after the failure, frame " << n;
    EXPECT_EQ(failures, 1);
    EXPECT_TRUE(streamer->hasFailed());
    EXPECT_EQ(streamer->readErrorCount(), 1);
    EXPECT_EQ(streamer->scheduledCount(), 3);
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
    StereoSignal out = play(1000);
    streamer->stop();
    std::int64_t resume = streamer->resumeFrame();
    EXPECT_EQ(resume, 0);

    // The node plays on through the end of the first buffer: its completion comes late.
    out = play(4000);
    EXPECT_EQ(streamer->scheduledCount(), 3);
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{4000, 4000, 2000}));
    EXPECT_EQ(streamer->resumeFrame(), resume);

    // A new run, while the old run's buffers are dropped and completed late.
    node->stop();
    node->play();
    streamer->start(node, 3000);
    queue->runAll();
    loop.runPending(); // the dropped buffers' completions
    queue->runAll();
    EXPECT_EQ(streamer->scheduledCount(), 6) << "old completions never feed the new run";
    EXPECT_EQ(streamer->inFlight(), (std::vector<std::uint32_t>{4000, 3000, 4000}));
    out = play(8000);
    expectFrames(out, 0, concat({range(3000, 10'000), range(0, 1000)}));

    // Completions that arrive after the streamer is gone do nothing either.
    streamer.reset();
    out = graph.render(8000);
    EXPECT_EQ(out.left[0], leftAt(1000));
}

} // namespace
} // namespace hushmeadows
