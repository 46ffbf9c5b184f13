#include "SceneCore/Picture/EdgeStrips.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>

namespace hushmeadows {
namespace {

using RGBA = std::array<std::uint8_t, 4>;
constexpr auto int64Max = std::numeric_limits<std::int64_t>::max();

Image picture(int width, int height, const std::function<RGBA(int x, int y)>& colour, PixelFormat format = PixelFormat::rgba8)
{
    Image image = Image::blank(width, height, format);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            auto c = colour(x, y);
            if (format == PixelFormat::bgra8)
                std::swap(c[0], c[2]);
            std::copy(c.begin(), c.end(), image.row(y) + x * 4);
        }
    return image;
}

Image uniform(int width, int height, RGBA colour) { return picture(width, height, [&](int, int) { return colour; }); }

RGBA at(const Image& strip, int i)
{
    const std::uint8_t* p = strip.pixels.data() + static_cast<std::size_t>(i) * 4;
    return {p[0], p[1], p[2], p[3]};
}

TEST(EdgeStrips, FailsWhenTheBandsWouldMeetOrTheDepthIsUnusable)
{
    const Image narrow = uniform(7, 100, {1, 2, 3, 255});
    Image truncated = narrow;
    truncated.pixels.pop_back();
    for (const Image& image : {truncated, uniform(6, 100, {1, 2, 3, 255}), uniform(100, 6, {1, 2, 3, 255}), Image{}})
        EXPECT_FALSE(EdgeStrips::make(image, 3));
    for (std::int64_t depth : {std::int64_t{0}, std::int64_t{-1}, int64Max / 2})
        EXPECT_FALSE(EdgeStrips::make(narrow, depth)) << depth;
    EXPECT_DEATH(EdgeStrips::make(narrow, int64Max / 2 + 1), "overflows");
    EXPECT_DEATH(EdgeStrips::make(narrow, std::numeric_limits<std::int64_t>::min()), "overflows");

    // A uniform picture gives its own colour everywhere, in either byte order,
    // translucent pixels as they show over black.
    for (auto [colour, shown] : {std::pair{RGBA{200, 100, 50, 255}, RGBA{200, 100, 50, 255}},
                                 {RGBA{255, 255, 255, 0}, RGBA{0, 0, 0, 255}}, {RGBA{255, 100, 0, 128}, RGBA{128, 50, 0, 255}}})
        for (auto format : {PixelFormat::rgba8, PixelFormat::bgra8}) {
            const auto strips = EdgeStrips::make(picture(50, 40, [&](int, int) { return colour; }, format), 3);
            ASSERT_TRUE(strips);
            EXPECT_EQ(strips->left.size(), (PixelSize{1, 40}));
            EXPECT_EQ(strips->top.size(), (PixelSize{50, 1}));
            for (const Image* s : {&strips->left, &strips->right, &strips->top, &strips->bottom})
                for (int i = 0; i < s->width * s->height; ++i)
                    ASSERT_EQ(at(*s, i), shown) << "position " << i;
            EXPECT_NEAR(strips->averageComponents.green, shown[1] / 255.0, 1e-9);
        }
}

TEST(EdgeStrips, SmoothingIsCutShortAtTheEndsAndWidensWithLength)
{
    const std::uint8_t reds[10] = {10, 20, 200, 0, 0, 0, 0, 40, 80, 90};
    const auto strips = EdgeStrips::make(picture(10, 4, [&](int x, int) { return RGBA{reds[x], 0, 0, 255}; }), 1);
    ASSERT_TRUE(strips);
    const int expected[10] = {15, 76, 73, 66, 0, 0, 13, 40, 70, 85}; // ends average two positions, not three
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(at(strips->top, i)[0], expected[i]) << i;

    // One bright row in the left band spreads over 2r + 1 positions.
    for (auto [length, radius] : {std::pair{199, 1}, {200, 1}, {399, 1}, {400, 2}, {600, 3}}) {
        const int bright = 100;
        const auto s = EdgeStrips::make(picture(10, length, [&](int, int y) {
            return y == bright ? RGBA{255, 255, 255, 255} : RGBA{0, 0, 0, 255};
        }), 1);
        ASSERT_TRUE(s);
        for (int d = -radius - 1; d <= radius + 1; ++d) {
            const int spread = d < -radius || d > radius ? 0 : 255 / (2 * radius + 1);
            EXPECT_EQ(at(s->left, bright + d)[0], spread) << "length " << length << " offset " << d;
        }
    }
}

} // namespace
} // namespace hushmeadows
