#include "SceneCore/Picture/FrameDamage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>

namespace hushmeadows {
namespace {

// Rows padded by 12 bytes, which never count as pixels.
Image picture(int width, int height)
{
    Image image = Image::blank(width, height, PixelFormat::bgra8);
    image.bytesPerRow += 12;
    image.pixels.assign(image.bytesPerRow * static_cast<std::size_t>(height), 0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * 4; ++x)
            image.row(y)[x] = static_cast<std::uint8_t>(x * 3 + y * 5);
    return image;
}

void touch(Image& image, int x, int y) { image.row(y)[static_cast<std::size_t>(x) * 4 + 1] ^= 0x55; }

void touchBlock(Image& image, int x0, int y0, int x1, int y1)
{
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            touch(image, x, y);
}

// Every changed pixel lies in exactly one rectangle, and every rectangle lies
// inside the picture.
void expectCovers(const FrameDamage& damage, const Image& a, const Image& b)
{
    for (const PixelRect& r : damage.rects)
        EXPECT_TRUE(r.x >= 0 && r.y >= 0 && r.x + r.width <= a.width && r.y + r.height <= a.height) << r.x << "," << r.y;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x) {
            int holders = 0;
            for (const PixelRect& r : damage.rects)
                holders += x >= r.x && x < r.x + r.width && y >= r.y && y < r.y + r.height;
            const bool changed = std::memcmp(a.row(y) + x * 4, b.row(y) + x * 4, 4) != 0;
            EXPECT_TRUE(holders == 1 || (holders == 0 && !changed)) << x << "," << y << " lies in " << holders << " rectangles";
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
        {"block", 40, 24, [](Image& i) { touchBlock(i, 5, 3, 20, 14); }, FrameDamage::Kind::some, {{0, 0, 24, 16}}},
        {"two apart", 40, 24, [](Image& i) { touch(i, 0, 0), touch(i, 39, 0); }, FrameDamage::Kind::some, {{0, 0, 8, 8}, {32, 0, 8, 8}}},
        {"everything", 40, 24, [](Image& i) { touchBlock(i, 0, 0, 40, 24); }, FrameDamage::Kind::whole, {}},
        // Pixel-art scenery: a few percent of pixels change, spread everywhere.
        {"scattered", 320, 180,
         [](Image& i) {
             std::uint32_t state = 7;
             for (int n = 0; n < 500; ++n, state = state * 1664525u + 1013904223u)
                 touch(i, static_cast<int>((state >> 8) % 320), static_cast<int>((state >> 20) % 180));
         },
         FrameDamage::Kind::some, {}},
        // Pictures that cannot be compared differ whole.
        {"other size", 16, 16, [](Image& i) { i = picture(16, 8); }, FrameDamage::Kind::whole, {}},
        {"other format", 16, 16, [](Image& i) { i.format = PixelFormat::rgba8; }, FrameDamage::Kind::whole, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Image before = picture(c.width, c.height);
        Image after = before;
        c.change(after);
        const FrameDamage damage = FrameDamage::between(before, after);
        EXPECT_EQ(damage.kind, c.kind);
        if (!c.rects.empty()) {
            EXPECT_EQ(damage.rects, c.rects);
        }
        EXPECT_LE(damage.rects.size(), FrameDamage::maxRects);
        if (c.kind == FrameDamage::Kind::some)
            expectCovers(damage, before, after);
        else
            EXPECT_TRUE(damage.rects.empty());
    }
}

} // namespace
} // namespace hushmeadows
