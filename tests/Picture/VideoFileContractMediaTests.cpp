#include "Platforms/Linux/FFmpegVideoFile.h"
#include "tests/support/FakeVideoFiles.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace hushmeadows {
namespace {

constexpr int fps = 48;

// The video-file port's contract, for the FFmpeg adapter and the fake alike:
// opaque frames in order at 1/rate apart, then the end, and after a rewind
// the same frames again; a missing file is a readable error. The looping
// video source's loops and playlists are proven on the fake, which this keeps
// honest.
struct FFmpegFiles {
    testing::TempDir dir;
    std::filesystem::path file = dir / "clip.mp4";
    static constexpr PixelSize size{32, 16};
    // A lossless clip whose frame i is filled with red = i.
    FFmpegFiles()
    {
        testing::runCommand("ffmpeg -v error -y -f lavfi -i \"color=c=black:s=32x16:r=" + std::to_string(fps)
                            + ",format=rgb24,geq=r='N':g='0':b='0'\" -frames:v 12 -c:v libx264rgb -qp 0 "
                            + testing::shellQuoted(file.string()));
    }
    VideoFileOpener opener() { return &FFmpegVideoFile::open; }
    // The red of a flat frame (BGRA), or -1 for a frame of mixed pixels.
    static int indexOf(const Image& image)
    {
        const std::uint8_t* first = image.row(0);
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                if (!std::equal(first, first + 4, image.row(y) + 4 * x))
                    return -1;
        return first[2];
    }
};
struct FakeFiles {
    testing::FakeVideoFiles fake;
    std::filesystem::path file = "clip.mp4";
    static constexpr PixelSize size{2, 1};
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
    EXPECT_EQ(file.pixelSize(), TypeParam::size);
    ImagePool pool;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < 12; ++i) {
            auto frame = file.readFrame(pool);
            ASSERT_TRUE(frame && *frame) << "pass " << pass << " frame " << i;
            EXPECT_EQ(TypeParam::indexOf(*(*frame)->image), i);
            EXPECT_TRUE((*frame)->image->opaque);
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
