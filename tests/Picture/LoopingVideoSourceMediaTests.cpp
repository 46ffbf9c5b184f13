#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Linux/FFmpegVideoFile.h"
#include "SceneCore/Picture/LoopingVideoSource.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Worlds/WorldPackage.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace hushmeadows {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

// The video source on real files through FFmpeg, with files changed under
// it as a user or a sync tool would change them.
class LoopingVideoSourceMediaTest : public ::testing::Test {
protected:
    static constexpr int fps = 12;
    testing::TempDir dir;
    ManualRunLoop loop;
    testing::ManualSerialQueue* queue = nullptr;
    testing::LogCapture log;
    std::unique_ptr<LoopingVideoSource> source;

    void make(const std::vector<std::string>& names)
    {
        std::vector<fs::path> urls;
        for (const auto& name : names)
            urls.push_back(dir / name);
        auto owned = std::make_unique<testing::ManualSerialQueue>(LoopingVideoSource::queueLabel);
        queue = owned.get();
        source = std::make_unique<LoopingVideoSource>(urls, loop, std::move(owned), &FFmpegVideoFile::open);
    }
    bool step()
    {
        for (int i = 0; i < 3; ++i) {
            queue->runAll();
            loop.runPending();
        }
        loop.advance(1.0 / fps);
        return source->copyNewFrame(loop.mediaTime()) != nullptr;
    }
    // Every step shows a new frame: the picture never freezes.
    void playOn(int steps)
    {
        for (int i = 0; i < steps; ++i)
            ASSERT_TRUE(step()) << "the picture froze at step " << i;
    }
    std::vector<std::string> lines(std::string_view prefix) const
    {
        std::vector<std::string> found;
        for (const auto& line : log.lines("video"))
            if (auto at = line.find(prefix); at != std::string::npos)
                found.push_back(line.substr(at));
        return found;
    }
    // Larger than FFmpeg's read buffer, so that a rewind reads the file again.
    static const fs::path& clip() { return testing::video({.width = 320, .height = 180, .fps = fps, .seconds = 1}); }
    void garble(const fs::path& file) { testing::writeText(file, std::string(fs::file_size(clip()), 'x')); }
};

TEST_F(LoopingVideoSourceMediaTest, FilesDeletedGarbledOrTurnedIntoAFifoAreDroppedAndTheRestPlayOn)
{
    for (const char* name : {"a.mp4", "b.mp4", "c.mp4", "d.mp4", "e.mp4"})
        testing::copyFile(clip(), dir / name);
    make({"a.mp4", "b.mp4", "c.mp4", "d.mp4", "e.mp4"});
    source->play();
    playOn(30);

    fs::remove(dir / "b.mp4");
    garble(dir / "c.mp4");
    fs::remove(dir / "d.mp4");
    ASSERT_EQ(::mkfifo((dir / "d.mp4").c_str(), 0600), 0); // opening it must not wait for a writer
    playOn(80);
    EXPECT_THAT(lines("No playable"),
                UnorderedElementsAre("No playable video in b.mp4", "No playable video in c.mp4", "No playable video in d.mp4"))
        << "each named once";

    // Overwritten in place, under the open decoder too: the last two go in
    // turn, and then the source fails with no frame held.
    garble(dir / "e.mp4");
    playOn(30);
    EXPECT_EQ(lines("No playable").size(), 4u);
    garble(dir / "a.mp4");
    for (int i = 0; i < 20 && !source->didFail(); ++i)
        step();
    EXPECT_TRUE(source->didFail());
    EXPECT_FALSE(step());
    EXPECT_EQ(lines("No playable").size(), 5u);
}

// What the media check says of a file is what playback logs of it.
TEST_F(LoopingVideoSourceMediaTest, PlaybackRefusesAFileForTheReasonTheMediaCheckGives)
{
    testing::runCommand("ffmpeg -v error -y -f lavfi -i color=s=64x36:r=6 -frames:v 0 -c:v libx264 -movflags +empty_moov "
                        + testing::shellQuoted((dir / "zero.mp4").string()));
    testing::copyFile(testing::video({.width = 4098, .height = 16}), dir / "wide.mp4");
    make({"zero.mp4", "wide.mp4"});
    source->play();
    EXPECT_FALSE(step());
    EXPECT_TRUE(source->didFail());

    FFmpegMediaProbe probe;
    for (const char* name : {"zero.mp4", "wide.mp4"}) {
        auto verdict = probe.probeVideo(dir / name);
        ASSERT_TRUE(verdict) << name;
        EXPECT_THAT(lines(std::string(name) + " cannot"), ElementsAre(std::string(name) + " cannot be played: " + videoProbeReason(*verdict)));
    }
    EXPECT_THAT(lines("wide.mp4 cannot"), ElementsAre("wide.mp4 cannot be played: the video is 4098×16, larger than the 4096×4096 the saver can show"));
    EXPECT_THAT(lines("zero.mp4 cannot"), ElementsAre("zero.mp4 cannot be played: zero duration"));
}

} // namespace
} // namespace hushmeadows
