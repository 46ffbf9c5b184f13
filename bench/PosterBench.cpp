// Posters: a 4K poster decoded through the poster store (decode, edge strips,
// hop back to the main loop) beside a bare FFmpeg decode of the same file;
// and drawing a 640×360 picture into a 1920×1080 window-like surface.
// Run from a Release build.

#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "Platforms/Linux/ThreadRunLoop.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Picture/PosterStore.h"
#include "tests/support/FixtureKit.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <thread>

namespace {

using namespace hushmeadows;

const std::filesystem::path& poster4K() { return testing::poster(3840, 2160); }

// load() on a fresh store (nothing cached) until the completion arrives on
// the main loop.
void BM_PosterStoreLoad4K(benchmark::State& state)
{
    const auto& file = poster4K();
    auto decoder = std::make_shared<FFmpegImageDecoder>();
    FFmpegMediaProbe headers;
    for (auto _ : state) {
        ThreadRunLoop loop;
        PosterStore store(loop, std::make_unique<ThreadSerialQueue>(PosterStore::queueLabel), decoder, headers);
        PosterStore::EntryPtr entry;
        bool done = false;
        store.load(file, [&](PosterStore::EntryPtr loaded) {
            entry = std::move(loaded);
            done = true;
        });
        if (!loop.runUntil([&] { return done; }, 60.0) || !entry) {
            state.SkipWithError("the poster did not load");
            break;
        }
        benchmark::DoNotOptimize(entry->image.pixels.data());
    }
}
BENCHMARK(BM_PosterStoreLoad4K)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BareFFmpegDecode4K(benchmark::State& state)
{
    const auto& file = poster4K();
    FFmpegImageDecoder decoder;
    for (auto _ : state) {
        auto image = decoder.decode(file, PixelFormat::bgra8);
        if (!image) {
            state.SkipWithError("the poster did not decode");
            break;
        }
        benchmark::DoNotOptimize(image->pixels.data());
    }
}
BENCHMARK(BM_BareFFmpegDecode4K)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same decode on a thread of its own, as the store runs it. Side by side
// with the one above it shows what the allocator costs: each decode asks for
// tens of megabytes, and glibc's main arena hands them back to the system
// after every run, so they are faulted in afresh each time.
void BM_BareFFmpegDecode4KOnAThread(benchmark::State& state)
{
    const auto& file = poster4K();
    FFmpegImageDecoder decoder;
    for (auto _ : state) {
        std::thread([&] {
            auto image = decoder.decode(file, PixelFormat::bgra8);
            benchmark::DoNotOptimize(image->pixels.data());
        }).join();
    }
}
BENCHMARK(BM_BareFFmpegDecode4KOnAThread)->Unit(benchmark::kMillisecond)->UseRealTime();

enum RenderCase {
    wholeScaleNewPicture, // ×3 nearest, a new picture at the same place: what a video frame costs
    wholeScaleEverything, // ×3 nearest, black and bars and picture
    fractionalNearest,    // 3.125, cropped: SDL_SoftStretch through scratch pixels
    wholeScaleLinear,     // ×3 bilinear: SDL_SoftStretchLinear
};

// Arguments: the case. The surface has the X11 window surface's format.
void BM_SurfaceRender640x360To1080p(benchmark::State& state)
{
    const auto which = static_cast<RenderCase>(state.range(0));
    SDL_Surface* target = SDL_CreateRGBSurfaceWithFormat(0, 1920, 1080, 32, SDL_PIXELFORMAT_XRGB8888);
    if (!target) {
        state.SkipWithError(SDL_GetError());
        return;
    }
    {
        SDLSceneSurface surface(target);
        auto first = std::make_shared<const Image>(testing::posterImage(640, 360, PixelFormat::bgra8));
        auto second = std::make_shared<const Image>(*first);
        PixelRect frame{0, 0, 1920, 1080};
        if (which == fractionalNearest)
            frame = {-40, -22, 2000, 1125};
        const Magnification magnification = which == wholeScaleLinear ? Magnification::linear : Magnification::nearest;
        surface.setArtwork(first, frame, magnification);
        surface.render();
        bool flip = false;
        for (auto _ : state) {
            if (which == wholeScaleNewPicture) {
                flip = !flip;
                surface.setArtwork(flip ? second : first, frame, magnification);
            } else {
                surface.setNeedsDisplay();
            }
            surface.render();
            benchmark::DoNotOptimize(target->pixels);
            benchmark::ClobberMemory();
        }
        state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations())); // frames per second
    }
    SDL_FreeSurface(target);
}
BENCHMARK(BM_SurfaceRender640x360To1080p)
    ->ArgName("case")
    ->Arg(wholeScaleNewPicture)
    ->Arg(wholeScaleEverything)
    ->Arg(fractionalNearest)
    ->Arg(wholeScaleLinear)
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
