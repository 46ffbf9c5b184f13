#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>
#include <stdexcept>

namespace hushmeadows {
namespace {

namespace kit = hushmeadows::testing;

const std::string ffmpeg = "ffmpeg -hide_banner -loglevel error -nostdin ";

// The pixels ffmpeg decodes from a file's first picture, as packed bytes.
std::string decodedPixels(const std::filesystem::path& file, const std::string& pixelFormat)
{
    return kit::runCommand(ffmpeg + "-i " + kit::shellQuoted(file.string()) + " -frames:v 1 -f rawvideo -pix_fmt "
        + pixelFormat + " -");
}

std::string packed(const Image& image)
{
    std::string bytes;
    for (int y = 0; y < image.height; ++y)
        bytes.append(reinterpret_cast<const char*>(image.row(y)), static_cast<std::size_t>(image.width) * 4);
    return bytes;
}

// Pixel tests elsewhere trust these files to the last bit.
TEST(FixtureKit, PNGsHoldExactlyTheImagesPixels)
{
    EXPECT_EQ(decodedPixels(kit::poster(16, 9), "rgba"), packed(kit::posterImage(16, 9)));

    // A padded BGRA image with see-through pixels, wider than one stored block.
    Image image = Image::blank(200, 90, PixelFormat::bgra8);
    image.bytesPerRow = 200 * 4 + 12;
    image.pixels.assign(image.bytesPerRow * 90, 0xEE);
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            std::uint8_t* pixel = image.row(y) + 4 * x;
            pixel[0] = static_cast<std::uint8_t>(x);     // blue
            pixel[1] = static_cast<std::uint8_t>(y);     // green
            pixel[2] = static_cast<std::uint8_t>(x ^ y); // red
            pixel[3] = static_cast<std::uint8_t>(x + y); // alpha
        }
    kit::TempDir dir;
    kit::writePNG(dir / "sub" / "picture.png", image);
    EXPECT_EQ(decodedPixels(dir / "sub" / "picture.png", "bgra"), packed(image));
}

TEST(FixtureKit, PosterPixelsFollowTheDocumentedPattern)
{
    Image image = kit::posterImage(16, 9);
    auto at = [&](int x, int y) { return std::vector<int>(image.row(y) + 4 * x, image.row(y) + 4 * x + 4); };
    EXPECT_EQ(at(0, 0), (std::vector<int>{0, 0, 0, 255}));
    EXPECT_EQ(at(15, 8), (std::vector<int>{255, 255, 255, 255}));
    EXPECT_EQ(at(1, 0), (std::vector<int>{17, 0, 255, 255}));
    EXPECT_EQ(at(3, 4), (std::vector<int>{51, 127, 255, 255}));
    std::set<std::vector<int>> distinct;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            distinct.insert(at(x, y));
    EXPECT_EQ(distinct.size(), 16u * 9u);
}

TEST(FixtureKit, ExactVideosDecodeToTheSourcePixels)
{
    const auto& file = kit::video({.width = 24, .height = 12, .exact = true});
    std::string source = kit::runCommand(ffmpeg + "-f lavfi -i testsrc2=size=24x12:rate=12 -frames:v 1 -f rawvideo -pix_fmt rgb24 -");
    ASSERT_EQ(source.size(), 24u * 12u * 3u);
    EXPECT_EQ(decodedPixels(file, "rgb24"), source);
    // The same request comes from the cache.
    EXPECT_EQ(&kit::video({.width = 24, .height = 12, .exact = true}), &file);
}

TEST(FixtureKit, FilesAreMadeAsAskedAndKeptApart)
{
    std::string shape = kit::runCommand("ffprobe -v error -show_entries stream=width,height,r_frame_rate,nb_read_frames "
        "-count_frames -of csv=p=0 " + kit::shellQuoted(kit::video({.width = 20, .height = 10, .fps = 8, .seconds = 1}).string()));
    EXPECT_EQ(shape, "20,10,8/1,8\n");
    EXPECT_NE(kit::audio({.container = "flac"}), kit::audio({.container = "wav"}));
    EXPECT_NE(kit::audio({.frequency = 440}), kit::audio({.frequency = 880}));
    EXPECT_EQ(std::filesystem::file_size(kit::emptyWav()), 44u);
}

TEST(FixtureKit, FoldersAndCommands)
{
    std::filesystem::path kept;
    {
        kit::TempDir dir;
        kept = dir.path();
        kit::writeText(dir / "a" / "b.txt", "hello");
        kit::copyFile(dir / "a" / "b.txt", dir / "c" / "d.txt");
        kit::writeText(dir / "c" / "d.txt", "changed");
        kit::copyFile(dir / "a" / "b.txt", dir / "c" / "d.txt");
        EXPECT_EQ(kit::runCommand("cat " + kit::shellQuoted((dir / "c" / "d.txt").string())), "hello");
    }
    EXPECT_FALSE(std::filesystem::exists(kept));

    EXPECT_EQ(kit::runCommand("printf '%s' " + kit::shellQuoted("it's")), "it's");
    try {
        kit::runCommand("echo partial; echo broken >&2; exit 3");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::strstr(error.what(), "broken"), nullptr) << error.what();
    }
}

} // namespace
} // namespace hushmeadows
