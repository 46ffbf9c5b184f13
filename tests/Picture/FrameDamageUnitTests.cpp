#include "SceneCore/Picture/FrameDamage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>

namespace hushmeadows {
namespace {

Image picture(int width, int height, std::size_t padding = 0)
{
    Image image = Image::blank(width, height, PixelFormat::bgra8);
    if (padding) {
        image.bytesPerRow += padding;
        image.pixels.assign(image.bytesPerRow * static_cast<std::size_t>(height), 0);
    }
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * 4; ++x)
            image.row(y)[x] = static_cast<std::uint8_t>(x * 3 + y * 5);
    return image;
}

void touch(Image& image, int x, int y) { image.row(y)[static_cast<std::size_t>(x) * 4 + 1] ^= 0x55; }

bool inside(const PixelRect& r, int x, int y) { return x >= r.x && x < r.x + r.width && y >= r.y && y < r.y + r.height; }

// Every changed pixel lies in exactly one rectangle, and every rectangle lies
// inside the picture.
void expectCovers(const FrameDamage& damage, const Image& a, const Image& b)
{
    for (const PixelRect& r : damage.rects) {
        EXPECT_GE(r.x, 0);
        EXPECT_GE(r.y, 0);
        EXPECT_LE(r.x + r.width, a.width);
        EXPECT_LE(r.y + r.height, a.height);
    }
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x) {
            int holders = 0;
            for (const PixelRect& r : damage.rects)
                holders += inside(r, x, y);
            EXPECT_LE(holders, 1) << x << "," << y << " lies in overlapping rectangles";
            if (std::memcmp(a.row(y) + x * 4, b.row(y) + x * 4, 4) != 0) {
                EXPECT_EQ(holders, 1) << x << "," << y << " changed but is not covered";
            }
        }
}

TEST(FrameDamage, FindsTheChangedTilesAndGathersThemIntoFewRectangles)
{
    struct Case {
        const char* name;
        int width, height;
        std::function<void(Image&)> change;
        FrameDamage::Kind kind;
        std::vector<PixelRect> rects; // checked when not empty
    };
    const Case cases[] = {
        {"equal", 40, 24, [](Image&) {}, FrameDamage::Kind::none, {}},
        {"one pixel", 40, 24, [](Image& i) { touch(i, 9, 17); }, FrameDamage::Kind::some, {{8, 16, 8, 8}}},
        // Tiles at the right and bottom edges are cut to the picture.
        {"ragged corner", 43, 21, [](Image& i) { touch(i, 42, 20); }, FrameDamage::Kind::some, {{40, 16, 3, 5}}},
        // Neighbouring tiles of a band join; a block spanning bands grows down.
        {"block", 40, 24,
         [](Image& i) {
             for (int y = 3; y < 14; ++y)
                 for (int x = 5; x < 20; ++x)
                     touch(i, x, y);
         },
         FrameDamage::Kind::some, {{0, 0, 24, 16}}},
        {"two apart", 40, 24,
         [](Image& i) {
             touch(i, 0, 0);
             touch(i, 39, 0);
         },
         FrameDamage::Kind::some, {{0, 0, 8, 8}, {32, 0, 8, 8}}},
        {"everything", 40, 24,
         [](Image& i) {
             for (int y = 0; y < 24; ++y)
                 for (int x = 0; x < 40; ++x)
                     touch(i, x, y);
         },
         FrameDamage::Kind::whole, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Image before = picture(c.width, c.height, 12);
        Image after = before;
        c.change(after);
        const FrameDamage damage = FrameDamage::between(before, after);
        EXPECT_EQ(damage.kind, c.kind);
        if (!c.rects.empty()) {
            EXPECT_EQ(damage.rects, c.rects);
        }
        if (c.kind == FrameDamage::Kind::some)
            expectCovers(damage, before, after);
        else
            EXPECT_TRUE(damage.rects.empty());
    }
}

TEST(FrameDamage, PicturesThatCannotBeComparedDifferWhole)
{
    const Image a = picture(16, 16);
    Image other = picture(16, 16);
    other.format = PixelFormat::rgba8;
    EXPECT_EQ(FrameDamage::between(a, picture(16, 8)).kind, FrameDamage::Kind::whole);
    EXPECT_EQ(FrameDamage::between(a, other).kind, FrameDamage::Kind::whole);
}

TEST(FrameDamage, ManyScatteredChangesStayFewRectanglesThatCoverThemAll)
{
    // Pixel-art scenery: a few percent of pixels change, spread everywhere.
    const Image before = picture(320, 180);
    Image after = before;
    std::uint32_t state = 7;
    for (int i = 0; i < 500; ++i) {
        state = state * 1664525u + 1013904223u;
        touch(after, static_cast<int>((state >> 8) % 320), static_cast<int>((state >> 20) % 180));
    }
    const FrameDamage damage = FrameDamage::between(before, after);
    ASSERT_EQ(damage.kind, FrameDamage::Kind::some);
    EXPECT_LE(damage.rects.size(), FrameDamage::maxRects);
    expectCovers(damage, before, after);
}

} // namespace
} // namespace hushmeadows
