#include "SceneCore/Picture/NearestUpscaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace hushmeadows {
namespace {

constexpr std::uint32_t untouched = 0xDEADBEEF;

std::uint32_t get(const Image& image, int x, int y)
{
    std::uint32_t value;
    std::memcpy(&value, image.row(y) + static_cast<std::size_t>(x) * 4, 4);
    return value;
}

// 4-byte pixels with rows padded by two pixels, which must never be written;
// every pixel distinct, or all untouched.
Image plane(int width, int height, bool distinct)
{
    Image image = Image::blank(width, height, PixelFormat::bgra8);
    image.bytesPerRow += 8;
    image.pixels.resize(image.bytesPerRow * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width + 2; ++x) {
            const std::uint32_t value = distinct && x < width ? 0xFF000000u | static_cast<std::uint32_t>(y) << 12 | static_cast<std::uint32_t>(x) : untouched;
            std::memcpy(image.row(y) + static_cast<std::size_t>(x) * 4, &value, 4);
        }
    return image;
}

// Upscales and checks every destination pixel, padding included, against the
// source pixel at ((x − originX) / scale, (y − originY) / scale), or the
// untouched marker outside the picture; and the rectangle reported.
::testing::AssertionResult upscalesExactly(const Image& source, int scale, int width, int height, int originX, int originY)
{
    Image d = plane(width, height, false);
    const PixelRect written = NearestUpscaler::upscale(ConstPixelPlane::of(source), scale, PixelPlane::of(d), originX, originY);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width + 2; ++x) {
            const long long dx = x - static_cast<long long>(originX), dy = y - static_cast<long long>(originY);
            const bool inside = x < width && dx >= 0 && dy >= 0 && dx < source.width * scale && dy < source.height * scale;
            const std::uint32_t expected = inside ? get(source, static_cast<int>(dx / scale), static_cast<int>(dy / scale)) : untouched;
            if (get(d, x, y) != expected)
                return ::testing::AssertionFailure() << "pixel " << x << "," << y << " is " << std::hex << get(d, x, y) << ", not " << expected;
        }
    const long long x0 = std::max(originX, 0), y0 = std::max(originY, 0);
    const long long x1 = std::min<long long>(originX + 1LL * source.width * scale, width);
    const long long y1 = std::min<long long>(originY + 1LL * source.height * scale, height);
    const PixelRect expected = x0 < x1 && y0 < y1 ? PixelRect{int(x0), int(y0), int(x1 - x0), int(y1 - y0)} : PixelRect{};
    if (written != expected)
        return ::testing::AssertionFailure() << "reported " << written.x << "," << written.y << " " << written.width << "×" << written.height;
    return ::testing::AssertionSuccess();
}

TEST(NearestUpscaler, EveryPixelShowsItsSourcePixelWhereverThePictureLands)
{
    const Image source = plane(7, 5, true);
    for (int s = 1; s <= 8; ++s) {
        const int pw = 7 * s, ph = 5 * s;
        EXPECT_TRUE(upscalesExactly(source, s, pw, ph, 0, 0)) << "exact, scale " << s;
        EXPECT_TRUE(upscalesExactly(source, s, pw + 7, ph + 5, 3, 2)) << "margins, scale " << s;
        EXPECT_TRUE(upscalesExactly(source, s, pw - 5, ph - 3, -2, -1)) << "cropped all round, scale " << s;
        EXPECT_TRUE(upscalesExactly(source, s, pw + 1, ph + 1, -3, -s - 1)) << "cropped left and top, scale " << s;
        EXPECT_TRUE(upscalesExactly(source, s, pw - 1, ph - 2, 1, 2)) << "cropped right and bottom, scale " << s;
        EXPECT_TRUE(upscalesExactly(source, s, 1, 1, -(s / 2), -(s / 2))) << "inside one block, scale " << s;
        EXPECT_TRUE(upscalesExactly(source, s, pw + 4, ph / 2, 2, -ph / 3)) << "wider but shorter, scale " << s;
    }
    EXPECT_TRUE(upscalesExactly(source, 11, 80, 60, 2, -3)) << "beyond the unrolled scales";
    for (auto [x, y] : {std::pair{12, 0}, {-28, 0}, {0, 12}, {0, -20}, {2'000'000'000, 2'000'000'000}})
        EXPECT_TRUE(upscalesExactly(source, 4, 12, 12, x, y)) << "missing the destination at " << x << "," << y;
}

} // namespace
} // namespace hushmeadows
