// Per-frame picture work on the software drawing path, and the once-per-poster
// edge strips. Run from a Release build.

#include "SceneCore/Picture/EdgeStrips.h"
#include "SceneCore/Picture/NearestUpscaler.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using namespace hushmeadows;

// A picture with some variety, so nothing is accidentally constant.
Image makePicture(int width, int height, PixelFormat format)
{
    Image image = Image::blank(width, height, format);
    std::uint32_t state = 2463534242u;
    for (auto& byte : image.pixels) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<std::uint8_t>(state);
    }
    return image;
}

void setFrameCounters(benchmark::State& state, std::size_t destinationBytes)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(destinationBytes));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations())); // frames per second
}

// Arguments: source width, source height, scale.
void BM_NearestUpscale(benchmark::State& state)
{
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    const int scale = static_cast<int>(state.range(2));
    const Image source = makePicture(width, height, PixelFormat::bgra8);
    Image destination = Image::blank(width * scale, height * scale, PixelFormat::bgra8);
    for (auto _ : state) {
        NearestUpscaler::upscale(ConstPixelPlane::of(source), scale, PixelPlane::of(destination), 0, 0);
        benchmark::DoNotOptimize(destination.pixels.data());
        benchmark::ClobberMemory();
    }
    setFrameCounters(state, destination.byteCost());
}
BENCHMARK(BM_NearestUpscale)
    ->ArgNames({"w", "h", "scale"})
    ->Args({640, 360, 3})
    ->Args({640, 360, 6})
    ->Args({480, 270, 4})
    ->Args({480, 270, 8})
    ->Unit(benchmark::kMicrosecond);

// The obvious loop, one source lookup with two divisions per destination
// pixel: the yardstick the row expander is measured against.
void BM_NaivePerPixelUpscale(benchmark::State& state)
{
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    const int scale = static_cast<int>(state.range(2));
    const Image source = makePicture(width, height, PixelFormat::bgra8);
    Image destination = Image::blank(width * scale, height * scale, PixelFormat::bgra8);
    for (auto _ : state) {
        for (int y = 0; y < destination.height; ++y) {
            std::uint8_t* out = destination.row(y);
            for (int x = 0; x < destination.width; ++x)
                std::memcpy(out + x * 4, source.row(y / scale) + (x / scale) * 4, 4);
        }
        benchmark::DoNotOptimize(destination.pixels.data());
        benchmark::ClobberMemory();
    }
    setFrameCounters(state, destination.byteCost());
}
BENCHMARK(BM_NaivePerPixelUpscale)->ArgNames({"w", "h", "scale"})->Args({640, 360, 3})->Unit(benchmark::kMicrosecond);

void BM_EdgeStrips(benchmark::State& state)
{
    const Image poster = makePicture(3840, 2160, PixelFormat::rgba8);
    for (auto _ : state) {
        auto strips = EdgeStrips::make(poster, 3);
        benchmark::DoNotOptimize(strips);
    }
}
BENCHMARK(BM_EdgeStrips)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
