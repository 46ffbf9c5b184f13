#include "SceneCore/Picture/NearestUpscaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace hushmeadows {
namespace {

constexpr std::uint32_t untouched = 0xDEADBEEF;

// 4-byte pixels with padded rows; the padding must never be written.
struct Plane {
    int width, height;
    std::size_t stride;
    std::vector<std::uint8_t> bytes;

    Plane(int w, int h, bool distinct)
        : width(w), height(h), stride(static_cast<std::size_t>(w) * 4 + 8), bytes(stride * static_cast<std::size_t>(h))
    {
        for (int y = 0; y < h; ++y)
            for (std::size_t i = 0; i < stride / 4; ++i) {
                const bool inRow = distinct && i < static_cast<std::size_t>(w);
                set(static_cast<int>(i), y, inRow ? 0xFF000000u | static_cast<std::uint32_t>(y) << 12 | static_cast<std::uint32_t>(i) : untouched);
            }
    }
    std::uint32_t get(int x, int y) const
    {
        std::uint32_t value;
        std::memcpy(&value, bytes.data() + static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x) * 4, 4);
        return value;
    }
    void set(int x, int y, std::uint32_t value) { std::memcpy(bytes.data() + static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x) * 4, &value, 4); }
    ConstPixelPlane source() const { return {bytes.data(), stride, width, height}; }
    PixelPlane destination() { return {bytes.data(), stride, width, height}; }
};

// Upscales and checks every destination pixel, padding included, against the
// source pixel at ((x − originX) / scale, (y − originY) / scale), or the
// untouched marker outside the picture; and the rectangle reported.
::testing::AssertionResult upscalesExactly(const Plane& source, int scale, int width, int height, int originX, int originY)
{
    Plane d(width, height, false);
    const PixelRect written = NearestUpscaler::upscale(source.source(), scale, d.destination(), originX, originY);
    for (int y = 0; y < d.height; ++y)
        for (int x = 0; x < static_cast<int>(d.stride / 4); ++x) {
            const long long dx = x - static_cast<long long>(originX), dy = y - static_cast<long long>(originY);
            const bool inside = x < d.width && dx >= 0 && dy >= 0 && dx < source.width * scale && dy < source.height * scale;
            const std::uint32_t expected = inside ? source.get(static_cast<int>(dx / scale), static_cast<int>(dy / scale)) : untouched;
            if (d.get(x, y) != expected)
                return ::testing::AssertionFailure() << "pixel " << x << "," << y << " is " << std::hex << d.get(x, y) << ", not " << expected;
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
    const Plane source(7, 5, true);
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
