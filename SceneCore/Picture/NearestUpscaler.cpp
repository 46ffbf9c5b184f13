#include "SceneCore/Picture/NearestUpscaler.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <cstring>

namespace hushmeadows {

namespace {

using Pixel = std::uint32_t;

inline Pixel load(const std::uint8_t* at)
{
    Pixel pixel;
    std::memcpy(&pixel, at, sizeof pixel);
    return pixel;
}

inline void store(std::uint8_t* at, Pixel pixel) { std::memcpy(at, &pixel, sizeof pixel); }

// Widens whole source pixels into blocks of Scale; Scale fixed at compile
// time lets the compiler unroll the repeat into a few wide stores.
template <int Scale>
std::uint8_t* expandWhole(const std::uint8_t* in, std::uint8_t* out, int count)
{
    for (int i = 0; i < count; ++i, in += 4) {
        const Pixel pixel = load(in);
        for (int k = 0; k < Scale; ++k, out += 4)
            store(out, pixel);
    }
    return out;
}

std::uint8_t* expandWholeAnyScale(const std::uint8_t* in, std::uint8_t* out, int count, int scale)
{
    switch (scale) {
    case 1:
        std::memcpy(out, in, static_cast<std::size_t>(count) * 4);
        return out + static_cast<std::size_t>(count) * 4;
    case 2: return expandWhole<2>(in, out, count);
    case 3: return expandWhole<3>(in, out, count);
    case 4: return expandWhole<4>(in, out, count);
    case 5: return expandWhole<5>(in, out, count);
    case 6: return expandWhole<6>(in, out, count);
    case 7: return expandWhole<7>(in, out, count);
    case 8: return expandWhole<8>(in, out, count);
    default:
        for (int i = 0; i < count; ++i, in += 4) {
            const Pixel pixel = load(in);
            for (int k = 0; k < scale; ++k, out += 4)
                store(out, pixel);
        }
        return out;
    }
}

std::uint8_t* repeat(const std::uint8_t* in, std::uint8_t* out, int times)
{
    const Pixel pixel = load(in);
    for (int k = 0; k < times; ++k, out += 4)
        store(out, pixel);
    return out;
}

// One destination row covering destination columns [firstColumn, firstColumn
// + columns), where `offset` is firstColumn's distance from the picture's left
// edge. The first and last source pixels may be cut by the clip.
void expandRow(const std::uint8_t* sourceRow, std::uint8_t* out, long long offset, int columns, int scale)
{
    const std::uint8_t* in = sourceRow + static_cast<std::size_t>(offset / scale) * 4;
    const int phase = static_cast<int>(offset % scale);
    int remaining = columns;
    if (phase != 0) {
        const int head = std::min(scale - phase, remaining);
        out = repeat(in, out, head);
        in += 4;
        remaining -= head;
    }
    const int whole = remaining / scale;
    out = expandWholeAnyScale(in, out, whole, scale);
    in += static_cast<std::size_t>(whole) * 4;
    remaining -= whole * scale;
    if (remaining > 0)
        repeat(in, out, remaining);
}

} // namespace

PixelRect NearestUpscaler::upscale(ConstPixelPlane source, int scale, PixelPlane destination, int originX, int originY)
{
    HM_PRECONDITION(scale >= 1, "the nearest upscaler needs a whole scale of at least 1");
    HM_PRECONDITION(source.width >= 0 && source.height >= 0 && destination.width >= 0 && destination.height >= 0,
                    "pixel planes must not have negative sizes");
    HM_PRECONDITION(source.bytesPerRow >= static_cast<std::size_t>(source.width) * 4
                        && destination.bytesPerRow >= static_cast<std::size_t>(destination.width) * 4,
                    "rows must hold 4 bytes per pixel");

    // The magnified picture, clipped to the destination, in 64 bits so that a
    // large scale or a far origin cannot overflow.
    const long long left = originX;
    const long long top = originY;
    const long long right = left + static_cast<long long>(source.width) * scale;
    const long long bottom = top + static_cast<long long>(source.height) * scale;
    const long long x0 = std::max(left, 0LL);
    const long long y0 = std::max(top, 0LL);
    const long long x1 = std::min(right, static_cast<long long>(destination.width));
    const long long y1 = std::min(bottom, static_cast<long long>(destination.height));
    if (x0 >= x1 || y0 >= y1)
        return {};
    HM_PRECONDITION(source.data != nullptr && destination.data != nullptr, "pixel planes need memory");

    const int columns = static_cast<int>(x1 - x0);
    const std::size_t rowBytes = static_cast<std::size_t>(columns) * 4;
    long long y = y0;
    while (y < y1) {
        const long long sourceY = (y - top) / scale;
        const long long blockEnd = std::min(top + (sourceY + 1) * scale, y1);
        std::uint8_t* first = destination.data + static_cast<std::size_t>(y) * destination.bytesPerRow + static_cast<std::size_t>(x0) * 4;
        expandRow(source.data + static_cast<std::size_t>(sourceY) * source.bytesPerRow, first, x0 - left, columns, scale);
        for (long long copy = y + 1; copy < blockEnd; ++copy)
            std::memcpy(destination.data + static_cast<std::size_t>(copy) * destination.bytesPerRow + static_cast<std::size_t>(x0) * 4,
                        first, rowBytes);
        y = blockEnd;
    }
    return {static_cast<int>(x0), static_cast<int>(y0), columns, static_cast<int>(y1 - y0)};
}

} // namespace hushmeadows
