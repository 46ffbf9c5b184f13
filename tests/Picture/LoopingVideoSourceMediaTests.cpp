#include "Platforms/Linux/FFmpegVideoFile.h"
#include "SceneCore/Picture/LoopingVideoSource.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FakeVideoFiles.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/ManualSerialQueue.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

constexpr int fps = 48;

// A lossless clip whose frame i is filled with red = i and green = tag.
std::filesystem::path indexedClip(const testing::TempDir& dir, int tag, int frames)
{
    auto file = dir / ("clip" + std::to_string(tag) + ".mp4");
    testing::runCommand("ffmpeg -v error -y -f lavfi -i \"color=c=black:s=32x16:r=" + std::to_string(fps) + ",format=rgb24,geq=r='N':g='"
                        + std::to_string(tag) + "':b='0'\" -frames:v " + std::to_string(frames) + " -c:v libx264rgb -qp 0 "
                        + testing::shellQuoted(file.string()));
    return file;
}

// {tag, index} of every frame handed out over `count` frame times, with the
// whole picture checked to be that one flat colour.
std::vector<std::pair<int, int>> play(std::vector<std::filesystem::path> urls, int count)
{
    ManualRunLoop loop;
    auto owned = std::make_unique<testing::ManualSerialQueue>(LoopingVideoSource::queueLabel);
    auto* queue = owned.get();
    LoopingVideoSource source(std::move(urls), loop, std::move(owned), &FFmpegVideoFile::open);
    source.play();
    std::vector<std::pair<int, int>> shown;
    for (int i = 0; i < count; ++i) {
        queue->runAll();
        loop.runPending();
        queue->runAll();
        loop.advance(1.0 / fps);
        auto image = source.copyNewFrame(loop.mediaTime());
        if (!image)
            continue;
        EXPECT_TRUE(image->opaque);
        EXPECT_EQ(image->size(), (PixelSize{32, 16}));
        const std::uint8_t* first = image->row(0);
        for (int y = 0; y < image->height; ++y)
            for (int x = 0; x < image->width; ++x)
                EXPECT_TRUE(std::equal(first, first + 4, image->row(y) + 4 * x)) << "a frame of mixed pixels";
        shown.emplace_back(first[1], first[2]); // BGRA: green is the tag, red the index
    }
    EXPECT_EQ(source.nominalFrameRate(), fps);
    return shown;
}

TEST(LoopingVideoSourceMedia, EveryFrameOncePerPassInOrderAcrossLoopPointsAndPlaylistChanges)
{
    testing::TempDir dir;
    const int frames = 12;
    auto a = indexedClip(dir, 1, frames);
    auto b = indexedClip(dir, 2, frames);

    // One file: four passes, three loop points, no frame missing or repeated.
    auto looped = play({a}, 4 * frames);
    ASSERT_EQ(looped.size(), 4u * frames);
    for (std::size_t i = 0; i < looped.size(); ++i)
        EXPECT_EQ(looped[i], std::make_pair(1, static_cast<int>(i % frames))) << "frame " << i;

    // Two files: they take turns, each played whole.
    auto playlist = play({a, b}, 4 * frames);
    ASSERT_EQ(playlist.size(), 4u * frames);
    for (std::size_t i = 0; i < playlist.size(); ++i) {
        EXPECT_EQ(playlist[i].second, static_cast<int>(i % frames)) << "frame " << i;
        EXPECT_EQ(playlist[i].first, playlist[i - i % frames].first) << "an item changed mid-way at " << i;
        if (i >= frames && i % frames == 0) {
            EXPECT_NE(playlist[i].first, playlist[i - 1].first) << "the same variation twice at " << i;
        }
    }
}

// The video-file port's contract, for the FFmpeg adapter and the fake alike:
// frames in order at 1/rate apart, then the end, and after a rewind the
// same frames again; a missing file is a readable error.
struct FFmpegFiles {
    testing::TempDir dir;
    std::filesystem::path file = indexedClip(dir, 1, 12);
    VideoFileOpener opener() { return &FFmpegVideoFile::open; }
    static int indexOf(const Image& image) { return image.row(0)[2]; }
};
struct FakeFiles {
    testing::FakeVideoFiles fake;
    std::filesystem::path file = "clip.mp4";
    FakeFiles() { fake.frames = {{"clip.mp4", 12}}; }
    VideoFileOpener opener() { return fake.opener(); }
    static int indexOf(const Image& image) { return testing::FakeVideoFiles::identify(image).second; }
};
template <typename Files>
class VideoFileContract : public ::testing::Test {};
using Adapters = ::testing::Types<FFmpegFiles, FakeFiles>;
TYPED_TEST_SUITE(VideoFileContract, Adapters);

TYPED_TEST(VideoFileContract, FramesInOrderThenTheEndAndTheSameAgainAfterARewind)
{
    TypeParam files;
    EXPECT_FALSE(files.opener()("missing.mp4").has_value());
    auto opened = files.opener()(files.file);
    ASSERT_TRUE(opened.has_value()) << opened.error();
    VideoFile& file = **opened;
    EXPECT_EQ(file.frameRate(), fps);
    ImagePool pool;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < 12; ++i) {
            auto frame = file.readFrame(pool);
            ASSERT_TRUE(frame && *frame) << "pass " << pass << " frame " << i;
            EXPECT_EQ(TypeParam::indexOf(*(*frame)->image), i);
            EXPECT_EQ((*frame)->image->size(), file.pixelSize());
            EXPECT_NEAR((*frame)->presentationTime, i / double(fps), 1e-6);
        }
        auto end = file.readFrame(pool);
        ASSERT_TRUE(end.has_value());
        EXPECT_FALSE(end->has_value());
        ASSERT_TRUE(file.rewind().has_value());
    }
}

} // namespace
} // namespace hushmeadows
